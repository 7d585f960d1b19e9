// What a path leads to; links are followed, and a path that leads nowhere is neither.
#ifndef TARVIO_SRC_BASE_FILE_TYPE_H
#define TARVIO_SRC_BASE_FILE_TYPE_H

#include <sys/stat.h>

namespace tarvio {

inline bool has_type(const char* path, mode_t type) noexcept {
  struct stat status = {};
  return path != nullptr && stat(path, &status) == 0 && (status.st_mode & S_IFMT) == type;
}

inline bool is_regular_file(const char* path) noexcept { return has_type(path, S_IFREG); }
inline bool is_directory(const char* path) noexcept { return has_type(path, S_IFDIR); }

}  // namespace tarvio

#endif
