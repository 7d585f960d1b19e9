#include "packages/version_order.h"

#include <algorithm>
#include <compare>

namespace client {

namespace {

bool is_digit(char character) { return character >= '0' && character <= '9'; }

// "~", the end or a digit, letters, anything else.
int order_of(std::string_view text) {
  if (text.empty() || is_digit(text.front())) return 0;
  const char character = text.front();
  const bool is_letter =
      (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
  if (character == '~') return -1;
  return static_cast<unsigned char>(character) + (is_letter ? 0 : 256);
}

std::string_view take_number(std::string_view& text) {
  text.remove_prefix(std::min(text.size(), text.find_first_not_of('0')));
  const size_t size =
      static_cast<size_t>(std::find_if_not(text.begin(), text.end(), is_digit) - text.begin());
  const std::string_view number = text.substr(0, size);
  text.remove_prefix(size);
  return number;
}

// Takes turns: what is not a number, character by character, then a number of any length.
std::strong_ordering compare(std::string_view one, std::string_view other) {
  const auto goes_on = [](std::string_view text) {
    return !text.empty() && !is_digit(text.front());
  };
  while (!one.empty() || !other.empty()) {
    while (goes_on(one) || goes_on(other)) {
      if (const auto order = order_of(one) <=> order_of(other); order != 0) return order;
      one.remove_prefix(1);
      other.remove_prefix(1);
    }
    const std::string_view number = take_number(one);
    const std::string_view other_number = take_number(other);
    if (const auto order = number.size() <=> other_number.size(); order != 0) return order;
    if (const auto order = number <=> other_number; order != 0) return order;
  }
  return std::strong_ordering::equal;
}

struct Version {
  std::string_view epoch;
  std::string_view upstream;
  std::string_view revision;
};

Version parts_of(std::string_view text) {
  Version version;
  if (const size_t colon = text.find(':'); colon != std::string_view::npos) {
    version.epoch = text.substr(0, colon);
    text.remove_prefix(colon + 1);
  }
  if (const size_t hyphen = text.rfind('-'); hyphen != std::string_view::npos) {
    version.revision = text.substr(hyphen + 1);
    text = text.substr(0, hyphen);
  }
  version.upstream = text;
  return version;
}

}  // namespace

bool is_older(std::string_view version, std::string_view other) {
  const Version one = parts_of(version);
  const Version two = parts_of(other);
  if (const auto order = compare(one.epoch, two.epoch); order != 0) return order < 0;
  if (const auto order = compare(one.upstream, two.upstream); order != 0) return order < 0;
  return compare(one.revision, two.revision) < 0;
}

}  // namespace client
