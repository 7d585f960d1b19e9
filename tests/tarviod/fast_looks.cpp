// Loaded into tarviod: the log reader, which waits for no event but the end of the manager, waits a
// few milliseconds instead of seconds.
#include <dlfcn.h>
#include <poll.h>

#include <algorithm>

namespace {

constexpr int kPeriodMs = 5;

}  // namespace

extern "C" int poll(pollfd* waited, nfds_t count, int timeout_ms) {
  using Function = int (*)(pollfd*, nfds_t, int);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "poll"));
  const bool is_period = count == 1 && waited[0].events == 0;
  return real(waited, count, is_period ? std::min(timeout_ms, kPeriodMs) : timeout_ms);
}
