// Loaded into tarviod: while the file that TARVIO_TEST_GO names exists, the clock stands still, as
// many seconds after its start as the file says.
//
// The clock is read before the run-time library of a sanitizer is set up, so nothing that one
// replaces may be called for it.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr long kSliceMs = 10;

long now_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int real_clock(clockid_t clock, timespec* time) {
  return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

// The keeper has it loaded as well, and keeps the real time.
bool is_keeper() { return std::strcmp(program_invocation_short_name, "tarviod-keeper") == 0; }

// False while there is no such file.
bool read_seconds(time_t* seconds) {
  const long file =
      syscall(SYS_openat, AT_FDCWD, std::getenv("TARVIO_TEST_GO"), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  char digit = 0;
  *seconds = 0;
  while (syscall(SYS_read, file, &digit, 1) == 1 && digit >= '0' && digit <= '9') {
    *seconds = *seconds * 10 + (digit - '0');
  }
  syscall(SYS_close, file);
  return true;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static const timespec start = [] {
    timespec now = {};
    real_clock(CLOCK_MONOTONIC, &now);
    return now;
  }();
  time_t seconds = 0;
  if (clock != CLOCK_MONOTONIC || is_keeper() || !read_seconds(&seconds))
    return real_clock(clock, time);
  *time = start;
  time->tv_sec += seconds;
  return 0;
}

extern "C" int poll(pollfd* waited, nfds_t count, int timeout_ms) {
  using Function = int (*)(pollfd*, nfds_t, int);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "poll"));
  if (timeout_ms < 0) return real(waited, count, timeout_ms);
  const long end_ms = now_ms() + timeout_ms;
  while (true) {
    const long left_ms = std::max(end_ms - now_ms(), 0L);
    const int ready = real(waited, count, static_cast<int>(std::min(left_ms, kSliceMs)));
    if (ready != 0 || left_ms == 0) return ready;
  }
}
