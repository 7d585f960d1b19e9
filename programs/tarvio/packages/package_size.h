// Sizes in the output of tar and df.
#ifndef TARVIO_CLIENT_PACKAGES_PACKAGE_SIZE_H
#define TARVIO_CLIENT_PACKAGES_PACKAGE_SIZE_H

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/line_cutter.h"

namespace client {

// The size in a line of a verbose listing of tar: 0 for a device, which has two numbers in its
// place; none when it cannot be parsed.
std::optional<uint64_t> listed_size(std::string_view line);

// Adds up the sizes in a verbose listing of tar, which comes in pieces.
class ListingSum {
 public:
  void add(std::string_view piece);
  // At the end: none when a line was not one of such a listing.
  std::optional<uint64_t> finish();

 private:
  void add_line(std::string_view line);

  // The size is near the beginning of a line, whose end, a name, may be of any length.
  std::array<char, 257> room_ = {};
  tarvio::LineCutter lines_{tarvio::LineEnd::kLineFeed, room_, tarvio::Excess::kDropped};
  uint64_t sum_ = 0;
  bool is_wrong_ = false;
};

// The free bytes of the file system that df lists first; none when that cannot be parsed.
std::optional<uint64_t> free_bytes_in(std::string_view df_output);

}  // namespace client

#endif
