#include "runtime/whole_file.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/owners.h"
#include "base/pipe.h"

namespace runtime {

namespace {

constexpr mode_t kPrivateMode = 0600;
constexpr uid_t kOwnUser = static_cast<uid_t>(-1);

// What is in its place may be a FIFO, which would hold the call.
bool write_new_file(const char* path, std::string_view text, mode_t mode, gid_t group) {
  (void)remove(path);
  const tarvio::Fd file(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kPrivateMode));
  return file.valid() && (group == kOwnGroup || fchown(file.get(), kOwnUser, group) == 0) &&
         fchmod(file.get(), mode) == 0 && tarvio::write_all(file.get(), text);
}

}  // namespace

bool write_whole_file(const char* path, std::string_view text, mode_t mode, gid_t group) {
  char temporary[PATH_MAX];
  const int length = snprintf(temporary, sizeof temporary, "%s.new", path);
  if (length < 0 || static_cast<size_t>(length) >= sizeof temporary) {
    errno = ENAMETOOLONG;
    return false;
  }
  if (write_new_file(temporary, text, mode, group) && rename(temporary, path) == 0) return true;
  const tarvio::ErrnoKeeper keeper;
  (void)unlink(temporary);
  return false;
}

}  // namespace runtime
