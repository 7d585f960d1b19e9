// Pipes, and reads and writes that signals do not break.
#ifndef TARVIO_SRC_BASE_PIPE_H
#define TARVIO_SRC_BASE_PIPE_H

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <span>
#include <string_view>

#include "base/owners.h"

namespace tarvio {

// Both ends are close-on-exec. Not valid, with errno set, when the pipe could not be made.
struct Pipe {
  explicit Pipe(int flags = 0) noexcept {
    int ends[2];
    if (pipe2(ends, flags | O_CLOEXEC) != 0) return;
    read_end.reset(ends[0]);
    write_end.reset(ends[1]);
  }

  [[nodiscard]] bool valid() const noexcept { return read_end.valid(); }

  Fd read_end;
  Fd write_end;
};

// Repeats a system call that a signal interrupts. Unless the call fails, errno stays unchanged.
ssize_t retried(auto call) noexcept {
  const int errno_before = errno;
  ssize_t count = -1;
  do {
    count = call();
  } while (count < 0 && errno == EINTR);
  if (count >= 0) errno = errno_before;
  return count;
}

inline ssize_t read_some(int fd, std::span<char> room) noexcept {
  return retried([=] { return read(fd, room.data(), room.size()); });
}

// Writes all bytes; false, with errno set, when that failed.
inline bool write_all(int fd, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<size_t>(written));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace tarvio

#endif
