// The space that the files of a package need.
#ifndef TARVIO_CLIENT_PACKAGES_NEEDED_SPACE_H
#define TARVIO_CLIENT_PACKAGES_NEEDED_SPACE_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "base/line_cutter.h"
#include "process/work_directory.h"

namespace client {

// On one file system.
struct Space {
  std::string directory;  // one that is there
  uint64_t needed_bytes = 0;
  std::optional<uint64_t> free_bytes =
      {};  // none where they are not counted, as of a root in memory

  [[nodiscard]] bool fits() const { return !free_bytes || needed_bytes <= *free_bytes; }
};

// Adds up, for each file system, what the regular files in verbose listings of tar take beyond the
// files that they replace.
class NeededSpace {
 public:
  // A listing of what is unpacked into a directory comes in pieces, and whole before the next one.
  void add(const std::string& directory, std::string_view piece);

  // All files so far, on any file system, as if they replaced none.
  [[nodiscard]] uint64_t listed_bytes() const { return listed_bytes_; }

  // Where the files so far exceed the space by far. A hostile listing may have no end.
  [[nodiscard]] const std::optional<Space>& exceeded() const { return exceeded_; }

  // At the end: where they do not fit, else where most of them go. Throws a Failure for a line that
  // is not one of such a listing.
  Space decisive();

 private:
  void add_line(const std::string& directory, std::string_view line);

  std::map<dev_t, Space> spaces_;
  std::optional<Space> exceeded_;
  uint64_t listed_bytes_ = 0;
  bool is_wrong_ = false;
  // A name that is longer counts for the directories that the beginning leads to.
  std::array<char, 4097> room_ = {};
  tarvio::LineCutter lines_{tarvio::LineEnd::kLineFeed, room_, tarvio::Excess::kDropped};
};

struct PackageSpace {
  uint64_t control_bytes = 0;
  uint64_t data_bytes = 0;
  Space decisive;
};

// After read_package_file, in the same directory: reads both archives of the package file to the
// end, unless their files exceed the space by far before it. Throws a Failure that names the one
// that is damaged.
PackageSpace measure_package(const WorkDirectory& directory, const std::string& absolute_path,
                             double seconds);

}  // namespace client

#endif
