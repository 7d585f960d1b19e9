#include "tarvio/file.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The file type bits of a path, or 0 when it does not exist.
mode_t type_of(const char* path) {
  struct stat status = {};
  return path != nullptr && stat(path, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

}  // namespace

int tq_get_file_length(const char* path, uint32_t* size) {
  struct stat status = {};
  if (path == nullptr || size == nullptr) {
    errno = EINVAL;
    return -1;
  }
  const int result = stat(path, &status);
  if (result == 0) *size = static_cast<uint32_t>(status.st_size);
  return result;
}

int tq_file_exist(const char* path, int32_t* flag) {
  if (flag != nullptr) *flag = type_of(path) == S_IFREG ? 1 : 0;
  return 0;
}

int tq_dir_exist(const char* path, int32_t* flag) {
  if (flag != nullptr) *flag = type_of(path) == S_IFDIR ? 1 : 0;
  return 0;
}

int tq_file_delete(const char* path) {
  if (path == nullptr) return EINVAL;
  return unlink(path) == 0 ? 0 : errno;
}
