// Texts of messages.
#ifndef TARVIO_FLEET_PAYLOAD_H
#define TARVIO_FLEET_PAYLOAD_H

#include <cstddef>
#include <string>
#include <string_view>

#include "terminal/json.h"

namespace fleet {

// On one line without its end, ASCII only, and valid whatever the bytes are.
inline std::string payload_of(const client::Json& json) {
  std::string line = client::line_of(json);
  line.pop_back();
  return line;
}

// What a text from elsewhere says; discarded where it is no JSON, or so deep that whoever goes
// through it could run out of stack.
inline client::Json json_in(std::string_view text) {
  constexpr size_t kMostLevels = 32;
  size_t levels = 0;
  bool is_string = false;
  for (size_t at = 0; at < text.size(); ++at) {
    const char byte = text[at];
    if (is_string && byte == '\\') ++at;
    if (byte == '"') is_string = !is_string;
    if (is_string) continue;
    if (byte == '[' || byte == '{') ++levels;
    if ((byte == ']' || byte == '}') && levels > 0) --levels;
    if (levels > kMostLevels) return client::Json(client::Json::value_t::discarded);
  }
  return client::Json::parse(text, nullptr, false);
}

}  // namespace fleet

#endif
