// Text from outside on its way to a terminal.
#ifndef TARVIO_CLIENT_TERMINAL_PRINTABLE_TEXT_H
#define TARVIO_CLIENT_TERMINAL_PRINTABLE_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace client {

// The text on one line that cannot drive a terminal: control characters, characters that turn the
// direction of writing and bytes that are not UTF-8 are shown as "\xNN", byte by byte.
std::string printable(std::string_view text);

// Columns that a printable UTF-8 text takes on a terminal.
size_t display_width(std::string_view text);

// As much of a printable UTF-8 text as takes so many columns at most; "..." ends what was cut.
std::string shortened(std::string_view text, size_t columns);

}  // namespace client

#endif
