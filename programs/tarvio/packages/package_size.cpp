#include "packages/package_size.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr size_t kSizeField = 2;
constexpr size_t kAvailableField = 3;
constexpr uint64_t kBlockBytes = 1024;
// The size stands at the beginning of a line, whose end, a name, may be as long as it likes.
constexpr size_t kKept = 256;

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

// Devices have two numbers in place of a size, and take no room.
bool is_device(std::string_view line) { return line.front() == 'b' || line.front() == 'c'; }

}  // namespace

void ListingSum::add(std::string_view piece) {
  while (!piece.empty()) {
    const size_t end = piece.find('\n');
    const std::string_view part = piece.substr(0, end);
    line_ += part.substr(0, kKept - std::min(kKept, line_.size()));
    piece.remove_prefix(std::min(piece.size(), part.size() + 1));
    if (end != std::string_view::npos) take_line();
  }
}

void ListingSum::take_line() {
  if (line_.empty() || !is_device(line_)) {
    const std::optional<uint64_t> size = number_of(field_of(line_, kSizeField));
    const bool is_added = size && !__builtin_add_overflow(sum_, *size, &sum_);
    is_wrong_ = is_wrong_ || !is_added;
  }
  line_.clear();
}

std::optional<uint64_t> ListingSum::bytes() const {
  return is_wrong_ || !line_.empty() ? std::nullopt : std::optional(sum_);
}

std::optional<uint64_t> free_bytes_in(std::string_view df_output) {
  const std::vector<std::string> lines = lines_of(df_output);
  if (lines.size() < 2) return std::nullopt;
  const std::optional<uint64_t> blocks = number_of(field_of(lines[1], kAvailableField));
  if (!blocks) return std::nullopt;
  return *blocks * kBlockBytes;
}

}  // namespace client
