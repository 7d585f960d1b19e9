#include "tarvio/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>

#include <atomic>

#include "util/handles.h"

namespace {

constexpr size_t kLineSize = 1024;

constinit std::atomic<int> threshold{TQ_LOG_WARNING};

int priority_of(int level) {
  switch (level) {
    case TQ_LOG_INFO:
      return LOG_INFO;
    case TQ_LOG_WARNING:
      return LOG_WARNING;
    case TQ_LOG_ERROR:
      return LOG_ERR;
    default:
      return LOG_DEBUG;
  }
}

}  // namespace

void tq_log_init(void) { openlog("tarvio", LOG_CONS, LOG_USER); }

void tq_set_log_level(int level) { threshold.store(level, std::memory_order_relaxed); }

void tq_log_func(int level, const char* file, int line, const char* format, ...) {
  const tarvio::ErrnoKeeper keeper;

  // A message that is dropped is formatted too: that is part of the contract.
  char text[kLineSize];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (length < 0) text[0] = '\0';
  const size_t used = length < 0 ? 0 : static_cast<size_t>(length);
  if (used < sizeof text) {
    (void)snprintf(text + used, sizeof text - used, " -  %s %d\n", file, line);
  }

  if (threshold.load(std::memory_order_relaxed) > level) return;
  syslog(priority_of(level), "%s", text);
  if (level == TQ_LOG_DEBUG) (void)printf("%s", text);
}
