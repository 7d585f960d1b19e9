// What tar and df tell of sizes.
#ifndef TARVIO_CLIENT_PACKAGES_PACKAGE_SIZE_H
#define TARVIO_CLIENT_PACKAGES_PACKAGE_SIZE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace client {

// Adds up the sizes in a verbose listing of tar, which comes in pieces.
class ListingSum {
 public:
  void add(std::string_view piece);
  // None when a line was no line of such a listing.
  [[nodiscard]] std::optional<uint64_t> bytes() const;

 private:
  void take_line();

  std::string line_;  // so far
  uint64_t sum_ = 0;
  bool is_wrong_ = false;
};

// The free bytes of the file system that df lists first; none when its output is not understood.
std::optional<uint64_t> free_bytes_in(std::string_view df_output);

}  // namespace client

#endif
