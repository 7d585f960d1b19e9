// An input as a file.
#ifndef TARVIO_FUZZ_MEMORY_FILE_H
#define TARVIO_FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace tarvio_fuzz {

class MemoryFile {
 public:
  explicit MemoryFile(const std::string& content) : fd_(memfd_create("input", MFD_CLOEXEC)) {
    const auto size = static_cast<ssize_t>(content.size());
    if (write(fd_, content.data(), content.size()) != size || lseek(fd_, 0, SEEK_SET) != 0)
      std::abort();
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  int fd() const { return fd_; }
  // For other processes as well.
  std::string path() const {
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd_);
  }

 private:
  int fd_;
};

}  // namespace tarvio_fuzz

#endif
