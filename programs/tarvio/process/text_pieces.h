// The words, numbers and lines of a text.
#ifndef TARVIO_CLIENT_PROCESS_TEXT_PIECES_H
#define TARVIO_CLIENT_PROCESS_TEXT_PIECES_H

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace client {

// Takes the first word, between blanks and line ends, from the text; empty at its end.
std::string_view take_word(std::string_view& text);

// The text without blanks and line ends around it.
std::string_view trimmed(std::string_view text);

// The number that the whole text is; none for any other text.
template <typename Number>
std::optional<Number> parse_number(std::string_view text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped_at, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped_at != end) return std::nullopt;
  return number;
}

// The lines of a text without their line feeds.
std::vector<std::string> lines_of(std::string_view text);

}  // namespace client

#endif
