// The space that the files of a package need.
#ifndef TARVIO_CLIENT_PACKAGES_NEEDED_SPACE_H
#define TARVIO_CLIENT_PACKAGES_NEEDED_SPACE_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "base/line_cutter.h"

namespace client {

// Adds up, for each file system, what the regular files in a verbose listing of tar take beyond the
// files that they replace.
class NeededSpace {
 public:
  explicit NeededSpace(std::string root) : root_(std::move(root)) {}

  // The listing comes in pieces.
  void add(std::string_view piece);

  // At the end. Throws a Failure that names the directory without enough free space, and for a line
  // that is not one of such a listing.
  void check();

 private:
  struct Place {
    std::string directory;  // one that is there
    uint64_t bytes = 0;
  };

  void add_line(std::string_view line);

  std::string root_;
  std::map<dev_t, Place> places_;
  bool is_wrong_ = false;
  // A name that is longer counts for the directories that the beginning leads to.
  std::array<char, 4097> room_ = {};
  tarvio::LineCutter lines_{tarvio::LineEnd::kLineFeed, room_, tarvio::Excess::kDropped};
};

}  // namespace client

#endif
