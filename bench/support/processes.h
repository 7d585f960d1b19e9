// What the processes of the manager cost.
#ifndef TARVIO_BENCH_SUPPORT_PROCESSES_H
#define TARVIO_BENCH_SUPPORT_PROCESSES_H

#include <sys/types.h>

#include <vector>

namespace tarvio_bench {

// A few pages more or less of a heap do not come from what was done in between.
inline constexpr long kRoundingKib = 64;

struct Memory {
  long kib = 0;      // the processes' part of what they map
  long rss_kib = 0;  // all that they map
  long own_kib = 0;  // what no file backs
};

// The proportional set size, but with the library as a whole, once: this process maps it too, and
// would share its size.
Memory memory_of(const std::vector<pid_t>& processes);

// The number once it is stable: the client sees the end of a connection before the manager has
// closed it.
long descriptors_of(pid_t pid);

}  // namespace tarvio_bench

#endif
