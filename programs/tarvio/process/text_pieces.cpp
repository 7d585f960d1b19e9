#include "process/text_pieces.h"

#include <algorithm>

#include "base/line_cutter.h"

namespace client {

std::string_view take_word(std::string_view& text) {
  constexpr std::string_view kBlanks = " \t\n";
  text.remove_prefix(std::min(text.size(), text.find_first_not_of(kBlanks)));
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return word;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  text.remove_prefix(std::min(text.size(), text.find_first_not_of(kBlanks)));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::vector<std::string> lines_of(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) lines.emplace_back(tarvio::take_line(text));
  return lines;
}

}  // namespace client
