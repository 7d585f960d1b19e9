#include "fleet/topics.h"

#include <algorithm>

namespace fleet {

namespace {

constexpr size_t kMaxNameBytes = 64;

// Of ASCII, whatever the locale.
bool is_letter_or_digit(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9');
}

}  // namespace

bool is_name(std::string_view text) {
  return !text.empty() && text.size() <= kMaxNameBytes && is_letter_or_digit(text.front()) &&
         std::all_of(text.begin(), text.end(), [](char byte) {
           return is_letter_or_digit(byte) || byte == '.' || byte == '_' || byte == '-';
         });
}

std::string topic_of(std::string_view device, std::string_view end) {
  return std::string(kDevices).append(device).append("/").append(end);
}

DeviceTopic device_topic(std::string_view topic) {
  if (!topic.starts_with(kDevices)) return {};
  topic.remove_prefix(kDevices.size());
  const size_t slash = topic.find('/');
  if (slash == std::string_view::npos || !is_name(topic.substr(0, slash))) return {};
  return {.device = topic.substr(0, slash), .end = topic.substr(slash + 1)};
}

}  // namespace fleet
