#include "models.h"

#include <algorithm>

namespace tarvio_fuzz {

Texts pieces_of(const std::string& text, size_t most, std::string_view ends) {
  Texts pieces;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = text.find_first_of(ends, begin);
    const size_t line = (end == std::string::npos ? text.size() : end + 1) - begin;
    const size_t length = std::min(line, most);
    pieces.emplace_back(text.substr(begin, length).c_str());
    begin += length;
  }
  return pieces;
}

Texts lines_of(const std::string& text) {
  Texts lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find_first_of("\r\n", begin), text.size());
    lines.emplace_back(text.substr(begin, end - begin).c_str());
    begin = end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
  }
  return lines;
}

std::string chopped(std::string line) {
  if (!line.ends_with('\n')) return line;
  line.pop_back();
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

Texts words_of(std::string_view text, std::string_view separators) {
  Texts words;
  while (true) {
    const size_t begin = text.find_first_not_of(separators);
    if (begin == std::string_view::npos) return words;
    text.remove_prefix(begin);
    words.emplace_back(text.substr(0, text.find_first_of(separators)));
    text.remove_prefix(words.back().size());
  }
}

void store(Pairs& pairs, const std::string& name, const std::string& value) {
  const auto pair = std::find_if(pairs.begin(), pairs.end(),
                                 [&](const auto& each) { return each.first == name; });
  if (pair == pairs.end()) {
    pairs.emplace_back(name, value);
  } else {
    pair->second = value;
  }
}

Pairs take_pairs(tq_conf* conf) {
  Pairs pairs;
  for (int32_t at = 0; at < tq_count_variables(conf); ++at)
    pairs.emplace_back(tq_find_name(conf, at), tq_find_value(conf, at));
  tq_conf_close(conf);
  return pairs;
}

Texts take_strings(tq_list_t* list) {
  Texts strings;
  for (void* at = tq_list_first(list); at != nullptr; at = tq_list_next(list))
    strings.emplace_back(static_cast<const char*>(at));
  tq_list_free(list, 1);
  return strings;
}

}  // namespace tarvio_fuzz
