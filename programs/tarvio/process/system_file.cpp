#include "process/system_file.h"

#include <algorithm>
#include <array>

#include "base/owners.h"

namespace client {

std::string read_system_file(const std::string& path) {
  std::string text;
  const tarvio::File file(fopen(path.c_str(), "re"));
  if (file == nullptr) return text;
  std::array<char, 4096> piece;
  while (const size_t size = fread(piece.data(), 1, piece.size(), file.get())) {
    text.append(piece.data(), size);
  }
  if (ferror(file.get()) != 0) text.clear();
  return text;
}

std::string_view take_word(std::string_view& text) {
  constexpr std::string_view kBlanks = " \t\n";
  text.remove_prefix(std::min(text.size(), text.find_first_not_of(kBlanks)));
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return word;
}

}  // namespace client
