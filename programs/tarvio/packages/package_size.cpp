#include "packages/package_size.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "process/text_pieces.h"

namespace client {

namespace {

constexpr size_t kSizeField = 2;
constexpr size_t kAvailableField = 3;
constexpr uint64_t kBlockBytes = 1024;

std::string_view field_of(std::string_view line, size_t field) {
  for (size_t at = 0;; ++at) {
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ')));
    const std::string_view word = line.substr(0, line.find(' '));
    if (at == field || word.empty()) return word;
    line.remove_prefix(word.size());
  }
}

std::optional<uint64_t> number_of(std::string_view text) {
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped_at, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped_at != end) return std::nullopt;
  return number;
}

// Devices have two numbers in place of a size, and take no space.
bool is_device(std::string_view line) { return line.front() == 'b' || line.front() == 'c'; }

}  // namespace

void ListingSum::add(std::string_view piece) {
  while (lines_.feed(piece) == tarvio::LineCutter::Result::kLine) add_line(lines_.line());
}

void ListingSum::add_line(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (!line.empty() && is_device(line)) return;
  const std::optional<uint64_t> size = number_of(field_of(line, kSizeField));
  const bool is_added = size && !__builtin_add_overflow(sum_, *size, &sum_);
  is_wrong_ = is_wrong_ || !is_added;
}

std::optional<uint64_t> ListingSum::finish() {
  const bool is_truncated = lines_.finish();
  return is_wrong_ || is_truncated ? std::nullopt : std::optional(sum_);
}

std::optional<uint64_t> free_bytes_in(std::string_view df_output) {
  const std::vector<std::string> lines = lines_of(df_output);
  if (lines.size() < 2) return std::nullopt;
  const std::optional<uint64_t> blocks = number_of(field_of(lines[1], kAvailableField));
  if (!blocks) return std::nullopt;
  return *blocks * kBlockBytes;
}

}  // namespace client
