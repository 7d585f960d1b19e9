// Whether the memory of tools is bounded.
#ifndef TARVIO_TESTS_SUPPORT_MEMORY_BOUND_H
#define TARVIO_TESTS_SUPPORT_MEMORY_BOUND_H

#include <unistd.h>

#include <cstdint>
#include <fstream>

namespace tarvio_test {

// They may have as much as the client and some more. A client that is emulated or has a sanitizer
// takes very much; so does this process then.
inline bool is_memory_bounded() {
  std::ifstream facts("/proc/self/statm");
  uint64_t pages = 0;
  facts >> pages;
  return pages * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)) < 512U << 20;
}

}  // namespace tarvio_test

#endif
