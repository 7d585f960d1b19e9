#include "terminal/json.h"

namespace client {

namespace {

constexpr int kIndent = 2;
constexpr int kOneLine = -1;

// ASCII only, because a terminal obeys some control characters beyond it. Bytes that are not UTF-8
// become replacement characters.
std::string dump(const Json& json, int indent) {
  return json.dump(indent, ' ', true, Json::error_handler_t::replace) + '\n';
}

}  // namespace

Json or_null(const std::string& text) { return text.empty() ? Json() : Json(text); }

std::string text_of(const Json& json) { return dump(json, kIndent); }

std::string line_of(const Json& json) { return dump(json, kOneLine); }

}  // namespace client
