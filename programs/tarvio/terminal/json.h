// JSON for scripts: ASCII only, and valid whatever the bytes are.
#ifndef TARVIO_CLIENT_TERMINAL_JSON_H
#define TARVIO_CLIENT_TERMINAL_JSON_H

#include <nlohmann/json.hpp>
#include <string>

namespace client {

// Members keep the order in which they were added.
using Json = nlohmann::ordered_json;

// Null for an empty text.
Json or_null(const std::string& text);

// Indented, for a whole output.
std::string text_of(const Json& json);

// On one line, for an output that goes on.
std::string line_of(const Json& json);

}  // namespace client

#endif
