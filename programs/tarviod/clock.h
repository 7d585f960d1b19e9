#ifndef TARVIOD_CLOCK_H
#define TARVIOD_CLOCK_H

#include <stdint.h>
#include <time.h>

namespace tarviod {

// Since some point of time in the past.
inline int64_t now_ms() {
  timespec now = {};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace tarviod

#endif
