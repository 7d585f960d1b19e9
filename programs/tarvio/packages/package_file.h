// Package files, and what their control files say.
#ifndef TARVIO_CLIENT_PACKAGES_PACKAGE_FILE_H
#define TARVIO_CLIENT_PACKAGES_PACKAGE_FILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/owners.h"
#include "process/child.h"
#include "process/failure.h"
#include "process/work_directory.h"

namespace client {

inline constexpr char kImageCategory[] = "Image";
inline constexpr char kApplicationCategory[] = "Application";

// What a package's tqcontrol file says.
struct PackageKind {
  std::string category;
  int32_t category_code = 0;  // as in a listing: see tarvio/package.h
  std::string subcategory;
  uint32_t subcategory_code = 0;  // with those of images: see tarvio/tbx.h
  std::vector<std::string> targets;
};

struct PackageFile {
  std::string name;
  std::string version;
  std::optional<PackageKind> kind;  // none without a tqcontrol file

  [[nodiscard]] bool is_image() const { return kind && kind->category == kImageCategory; }
};

// "NAME VERSION", or the name alone of an image without a version.
std::string title_of(const PackageFile& package);

// Whether a path ends in ".tbx", with something before it.
bool is_package_file_name(std::string_view path);

struct RegularFile {
  tarvio::Fd fd;
  uint64_t bytes;
};

// Opens it to read, without waiting for a FIFO. Throws a Failure with the system's reason, or for
// what is not a regular file.
RegularFile open_regular_file(const std::string& path);

// The absolute path of a file that can be read. Throws a Failure.
std::string readable_file(const std::string& path);

// Reads a package file's control files, which a child process unpacks in the work directory. Throws
// a Failure.
PackageFile read_package_file(const WorkDirectory& directory, const std::string& absolute_path,
                              double seconds);

// Throws a Failure unless both archives of the file, of which read_package_file has unpacked the
// first, can be read to their ends. Unpacks nothing more; the sinks get tar's verbose listings.
void check_archives(const WorkDirectory& directory, const std::string& absolute_path,
                    double seconds, const Sink& control_listing, const Sink& data_listing);

// The value of a line of tqcontrol that names a target, as the library hands it out.
std::string target_in(std::string_view line);

}  // namespace client

#endif
