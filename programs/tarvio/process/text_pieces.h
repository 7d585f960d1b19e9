// The words and lines of a text.
#ifndef TARVIO_CLIENT_PROCESS_TEXT_PIECES_H
#define TARVIO_CLIENT_PROCESS_TEXT_PIECES_H

#include <string>
#include <string_view>
#include <vector>

namespace client {

// Takes the first word, between blanks and line ends, from the text; empty at its end.
std::string_view take_word(std::string_view& text);

// The lines of a text without their line feeds.
std::vector<std::string> lines_of(std::string_view text);

}  // namespace client

#endif
