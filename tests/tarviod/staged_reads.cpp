// Loaded into tarviod: before and after each read at an offset, which the log reader alone does,
// runs /run/before-read and /run/after-read, if they are there, with that offset as argument. Reads
// fail while the file /run/unreadable is there.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace {

void run_at(const char* program, off64_t offset) {
  if (access(program, X_OK) != 0) return;
  // Where SIGCHLD is ignored there is no status, but the program is waited for all the same.
  (void)!system((std::string(program) + " " + std::to_string(offset)).c_str());
}

}  // namespace

extern "C" ssize_t pread64(int fd, void* room, size_t size, off64_t offset) {
  using Function = ssize_t (*)(int, void*, size_t, off64_t);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pread64"));
  run_at("/run/before-read", offset);
  if (access("/run/unreadable", F_OK) == 0) {
    errno = EIO;
    return -1;
  }
  const ssize_t count = real(fd, room, size, offset);
  run_at("/run/after-read", offset);
  return count;
}
