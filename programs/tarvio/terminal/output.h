// Standard output and standard error.
#ifndef TARVIO_CLIENT_TERMINAL_OUTPUT_H
#define TARVIO_CLIENT_TERMINAL_OUTPUT_H

#include <string_view>

namespace client {

// Writes to standard output in one piece; complains, but only once, and returns false when that
// failed.
bool print(std::string_view text) noexcept;

// Writes one line, "tarvio: " and the message made printable, to standard error; without the memory
// for that, that there is none.
void complain(std::string_view message) noexcept;

// Whether standard output is a terminal that can be drawn on.
bool is_screen();

// Whether it is one that should show colours.
bool wants_colour();

}  // namespace client

#endif
