#include "base/deadline.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>

namespace tarvio {

namespace {

constexpr int64_t kUsPerSecond = 1'000'000;
constexpr double kMaxSeconds = 1e9;  // 31 years, far from what overflows in microseconds

int64_t now_us() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * kUsPerSecond + now.tv_nsec / 1000;
}

}  // namespace

Deadline Deadline::after(int milliseconds) {
  return Deadline(now_us() + static_cast<int64_t>(milliseconds) * 1000);
}

Deadline Deadline::after_seconds(double seconds) {
  if (seconds <= 0) return never();
  return Deadline(now_us() + static_cast<int64_t>(std::min(seconds, kMaxSeconds) * kUsPerSecond));
}

int Deadline::remaining_ms() const {
  if (at_us_ == kNever) return -1;
  // By libc: `/` would bring a routine of the compiler's library into each program of the device.
  const long long left_ms = lldiv(std::max<int64_t>(at_us_ - now_us(), 0) + 999, 1000).quot;
  return static_cast<int>(std::min<int64_t>(left_ms, INT_MAX));
}

bool wait_for(int fd, short events, const Deadline& deadline) {
  while (true) {
    pollfd waited = {.fd = fd, .events = events, .revents = 0};
    const int ready = poll(&waited, 1, deadline.remaining_ms());
    if (ready == 0) errno = ETIMEDOUT;
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

bool send_all(int fd, std::string_view bytes, const Deadline& deadline) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      bytes.remove_prefix(static_cast<size_t>(sent));
    } else if (errno != EINTR && (errno != EAGAIN || !wait_for(fd, POLLOUT, deadline))) {
      return false;
    }
    if (!bytes.empty() && deadline.passed()) return false;
  }
  return true;
}

}  // namespace tarvio
