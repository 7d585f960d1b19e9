// Loaded into tarviod: once the file that TARVIO_TEST_GO names exists, the clock is 90 seconds
// ahead.
#include <dlfcn.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr time_t kLaterSeconds = 90;
constexpr long kSliceMs = 10;

long now_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using Function = int (*)(clockid_t, timespec*);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "clock_gettime"));
  const int result = real(clock, time);
  if (access(std::getenv("TARVIO_TEST_GO"), F_OK) == 0) time->tv_sec += kLaterSeconds;
  return result;
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
