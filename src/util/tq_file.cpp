#include "tarvio/file.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_type.h"

// Both tests return 0 whatever they find (oddity 22).

int tq_file_exist(const char* path, int32_t* flag) {
  if (flag != nullptr) *flag = tarvio::is_regular_file(path) ? 1 : 0;
  return 0;
}

int tq_dir_exist(const char* path, int32_t* flag) {
  if (flag != nullptr) *flag = tarvio::is_directory(path) ? 1 : 0;
  return 0;
}

// -1 instead of an errno value, and the low 32 bits of the length (oddity 23).
int tq_get_file_length(const char* path, uint32_t* size) {
  if (path == nullptr || size == nullptr) {
    errno = EINVAL;
    return -1;
  }
  struct stat status = {};
  const int result = stat(path, &status);
  if (result == 0) *size = static_cast<uint32_t>(status.st_size);
  return result;
}

int tq_file_delete(const char* path) {
  if (path == nullptr) return EINVAL;
  return unlink(path) == 0 ? 0 : errno;
}
