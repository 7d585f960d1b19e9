// Loaded into tarvio: each look at the clock is so many seconds after the one before as
// TARVIO_TEST_STEP says; 0 lets it stand still.
#include <time.h>

#include <cstdlib>

extern "C" int clock_gettime(clockid_t /*clock*/, timespec* time) noexcept {
  static time_t seconds = 1'000'000'000;
  seconds += std::atol(std::getenv("TARVIO_TEST_STEP"));
  *time = {.tv_sec = seconds, .tv_nsec = 0};
  return 0;
}
