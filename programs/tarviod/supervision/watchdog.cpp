#include "watchdog.h"

#include <stdint.h>
#include <time.h>

#include <atomic>

#include "notify.h"
#include "settings/warn.h"

namespace tarviod {

namespace {

using tarvio::Deadline;

constexpr uint32_t kNoStep = 0;

// When the step of the com thread has to be over, in seconds of the monotonic clock: what a device
// of 32 bits reads and writes at once.
constinit std::atomic<uint32_t> step_end = kNoStep;

uint32_t now_s() {
  timespec now = {};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(now.tv_sec);
}

}  // namespace

void begin_step(int seconds) {
  step_end.store(now_s() + static_cast<uint32_t>(seconds), std::memory_order_relaxed);
}

void end_steps() { step_end.store(kNoStep, std::memory_order_relaxed); }

Deadline feed_watchdog() {
  static Deadline next = watchdog_period_ms() == 0 ? Deadline::never() : Deadline::after(0);
  if (!next.passed()) return next;
  next = Deadline::after(watchdog_period_ms());
  const uint32_t end = step_end.load(std::memory_order_relaxed);
  if (end == kNoStep || now_s() <= end) {
    notify("WATCHDOG=1");
  } else {
    warn("watchdog", "not fed: a request or an application takes too long");
  }
  return next;
}

}  // namespace tarviod
