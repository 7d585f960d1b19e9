#include "descriptor_warning.h"

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <utility>

#include "base/owners.h"
#include "runtime/descriptors.h"
#include "settings/warn.h"

namespace tarviod {

namespace {

// The lowest number that is free says so without a look at all of them.
uint64_t open_descriptors(uint64_t limit) {
  const tarvio::Fd lowest(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
  return lowest.valid() ? static_cast<uint64_t>(lowest.get()) : limit;
}

}  // namespace

void watch_descriptors() {
  static bool is_reported = false;
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const uint64_t most = limit.rlim_cur;
  const uint64_t count = open_descriptors(most);
  const bool is_short = runtime::is_short_of_descriptors(count, most);
  if (!std::exchange(is_reported, is_short) && is_short) {
    char why[128];
    (void)snprintf(why, sizeof why, "%llu of %llu are in use: raise the limit of the manager",
                   static_cast<unsigned long long>(count), static_cast<unsigned long long>(most));
    warn("open files", why);
  }
}

}  // namespace tarviod
