#include "notify.h"

#include <limits.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace tarviod {

namespace {

constexpr char kSocket[] = "NOTIFY_SOCKET";
constexpr char kPeriod[] = "WATCHDOG_USEC";
constexpr char kProcess[] = "WATCHDOG_PID";
constexpr unsigned long long kUsPerMs = 1000;
constexpr long long kUsPerSecond = 1'000'000;
constexpr long kNsPerUs = 1000;

// Stays open, so that reports need no descriptor when these are short.
int notify_fd = -1;
int period_ms = 0;

// An absolute path, or after an at sign the name of an abstract socket.
void connect_to(const char* name) {
  sockaddr_un address = {};
  const size_t length = strlen(name);
  if ((name[0] != '/' && name[0] != '@') || length > sizeof address.sun_path) return;
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, name, length);
  if (name[0] == '@') address.sun_path[0] = '\0';
  notify_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (notify_fd < 0) return;
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  (void)connect(notify_fd, reinterpret_cast<const sockaddr*>(&address), size);
}

int half_in_ms(const char* microseconds) {
  const unsigned long long half = strtoull(microseconds, nullptr, 10) / kUsPerMs / 2;
  return static_cast<int>(std::min<unsigned long long>(half, INT_MAX));
}

}  // namespace

void meet_supervisor() {
  const char* const name = getenv(kSocket);
  const char* const period = getenv(kPeriod);
  const char* const process = getenv(kProcess);
  if (name != nullptr) connect_to(name);
  const bool is_meant = process == nullptr || strtoll(process, nullptr, 10) == getpid();
  if (notify_fd >= 0 && period != nullptr && is_meant) period_ms = half_in_ms(period);
  for (const char* variable : {kSocket, kPeriod, kProcess}) (void)unsetenv(variable);
}

void notify(const char* state) {
  if (notify_fd >= 0) (void)send(notify_fd, state, strlen(state), MSG_NOSIGNAL);
}

void notify_reloading() {
  timespec now = {};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  char state[64];
  (void)snprintf(state, sizeof state, "RELOADING=1\nMONOTONIC_USEC=%lld",
                 static_cast<long long>(now.tv_sec) * kUsPerSecond + now.tv_nsec / kNsPerUs);
  notify(state);
}

void notify_installed(int count) {
  char state[64];
  (void)snprintf(state, sizeof state, "STATUS=%d application%s installed", count,
                 count == 1 ? "" : "s");
  notify(state);
}

int watchdog_period_ms() { return period_ms; }

}  // namespace tarviod
