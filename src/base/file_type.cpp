#include "base/file_type.h"

#include <sys/stat.h>

#include <limits>

namespace tarvio {

namespace {

constexpr off_t kAnySize = std::numeric_limits<off_t>::max();
constexpr off_t kMaxControlBytes = 128 << 20;

bool has_type(const char* path, mode_t type, off_t max_bytes) noexcept {
  struct stat status = {};
  return path != nullptr && stat(path, &status) == 0 && (status.st_mode & S_IFMT) == type &&
         status.st_size <= max_bytes;
}

}  // namespace

bool is_regular_file(const char* path) noexcept { return has_type(path, S_IFREG, kAnySize); }

bool is_directory(const char* path) noexcept { return has_type(path, S_IFDIR, kAnySize); }

bool is_control_file(const char* path) noexcept {
  return has_type(path, S_IFREG, kMaxControlBytes);
}

}  // namespace tarvio
