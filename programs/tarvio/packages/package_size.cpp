#include "packages/package_size.h"

#include <charconv>
#include <vector>

#include "process/text_pieces.h"

namespace client {

namespace {

constexpr uint64_t kBlockBytes = 1024;

// The word after so many others; empty when there are fewer.
std::string_view word_after(size_t others, std::string_view line) {
  while (others-- > 0) (void)take_word(line);
  return take_word(line);
}

std::optional<uint64_t> number_of(std::string_view text) {
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped_at, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped_at != end) return std::nullopt;
  return number;
}

}  // namespace

// "-rw-r--r-- 0/0 3000 2024-01-01 00:00 ./opt/clock/face"
std::optional<uint64_t> listed_size(std::string_view line) {
  const bool is_device = line.starts_with('b') || line.starts_with('c');
  return is_device ? 0 : number_of(word_after(2, line));
}

void ListingSum::add(std::string_view piece) {
  while (lines_.feed(piece) == tarvio::LineCutter::Result::kLine) add_line(lines_.line());
}

void ListingSum::add_line(std::string_view line) {
  const std::optional<uint64_t> size = listed_size(line);
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
  const std::optional<uint64_t> blocks = number_of(word_after(3, lines[1]));
  if (!blocks) return std::nullopt;
  return *blocks * kBlockBytes;
}

}  // namespace client
