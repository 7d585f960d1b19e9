// Loaded into tarviod: while the file that TARVIO_TEST_GO names exists, the clock stands still, as
// many seconds after its start as the file says.
#include <dlfcn.h>
#include <poll.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr long kSliceMs = 10;

long now_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// False while there is no such file.
bool read_seconds(time_t* seconds) {
  FILE* file = std::fopen(std::getenv("TARVIO_TEST_GO"), "re");
  if (file == nullptr) return false;
  long number = 0;
  const bool read = std::fscanf(file, "%ld", &number) == 1;
  std::fclose(file);
  *seconds = number;
  return read;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using Function = int (*)(clockid_t, timespec*);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "clock_gettime"));
  static const timespec start = [] {
    timespec now = {};
    real(CLOCK_MONOTONIC, &now);
    return now;
  }();
  time_t seconds = 0;
  if (clock != CLOCK_MONOTONIC || !read_seconds(&seconds)) return real(clock, time);
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
