#include "descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/owners.h"
#include "runtime/state_file.h"
#include "settings/warn.h"

namespace tarviod {

namespace {

constexpr long long kFewPercent = 70;

int descriptor_limit() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, INT_MAX));
}

// At least so many are open as the lowest free number says, which costs no look at all of them.
// Those that come fill the gaps below it.
int at_least_open() {
  const tarvio::Fd lowest(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
  return lowest.valid() ? lowest.get() : INT_MAX;
}

}  // namespace

Descriptors count_descriptors() {
  const tarvio::Directory directory(opendir("/proc/self/fd"));
  int count = 0;
  while (directory != nullptr) {
    const dirent* const entry = readdir(directory.get());
    if (entry == nullptr) break;
    if (entry->d_name[0] != '.') ++count;
  }
  return {.used = count - 1, .limit = descriptor_limit()};  // without the directory itself
}

bool watch_descriptors() {
  static bool is_short = false;
  const int limit = descriptor_limit();
  const auto most =
      static_cast<int>(limit * (is_short ? kFewPercent : runtime::kMostDescriptorPercent) / 100);
  const int used = is_short ? count_descriptors().used : at_least_open();
  const bool was_short = std::exchange(is_short, used >= most);
  if (is_short && !was_short) {
    char why[96];
    (void)snprintf(why, sizeof why, "%d of %d are in use: raise the limit of the manager",
                   std::min(used, limit), limit);
    warn("open files", why);
  }
  return is_short != was_short;
}

}  // namespace tarviod
