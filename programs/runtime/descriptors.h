// When the manager runs short of file descriptors.
#ifndef TARVIO_RUNTIME_DESCRIPTORS_H
#define TARVIO_RUNTIME_DESCRIPTORS_H

#include <stdint.h>

namespace runtime {

constexpr bool is_short_of_descriptors(uint64_t used, uint64_t limit) {
  constexpr uint64_t kMostPercent = 80;
  return used >= limit / 100 * kMostPercent + limit % 100 * kMostPercent / 100;
}

}  // namespace runtime

#endif
