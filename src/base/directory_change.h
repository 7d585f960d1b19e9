#ifndef TARVIO_SRC_BASE_DIRECTORY_CHANGE_H
#define TARVIO_SRC_BASE_DIRECTORY_CHANGE_H

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "base/owners.h"

namespace tarvio {

// Changes the current directory for its lifetime. The way back is a descriptor, which holds also
// when the directory is renamed meanwhile.
class DirectoryChange {
 public:
  explicit DirectoryChange(const char* path)
      : before_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (!before_.valid() || chdir(path) != 0) error_ = errno;
  }
  DirectoryChange(const DirectoryChange&) = delete;
  DirectoryChange& operator=(const DirectoryChange&) = delete;
  ~DirectoryChange() {
    const ErrnoKeeper keeper;
    if (before_.valid()) (void)fchdir(before_.get());
  }

  // 0 when the directory was entered, else an errno value.
  [[nodiscard]] int error() const { return error_; }

 private:
  Fd before_;
  int error_ = 0;
};

}  // namespace tarvio

#endif
