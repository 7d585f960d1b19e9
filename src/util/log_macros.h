// One macro per level, for units. The build gives each file of a unit the name of the unit, which
// comes from the file's path; a file that is not part of a unit has no name and cannot log.
#ifndef TARVIO_SRC_UTIL_LOG_MACROS_H
#define TARVIO_SRC_UTIL_LOG_MACROS_H

#include "tarvio/log.h"

#define TQ_DEBUG(...) tarvio::log_line(TQ_LOG_DEBUG, TARVIO_UNIT, __LINE__, __VA_ARGS__)
#define TQ_INFO(...) tarvio::log_line(TQ_LOG_INFO, TARVIO_UNIT, __LINE__, __VA_ARGS__)
#define TQ_WARNING(...) tarvio::log_line(TQ_LOG_WARNING, TARVIO_UNIT, __LINE__, __VA_ARGS__)
#define TQ_ERROR(...) tarvio::log_line(TQ_LOG_ERROR, TARVIO_UNIT, __LINE__, __VA_ARGS__)

// The caller's place, for a helper that logs for it.
#define TQ_HERE (tarvio::LogPlace{TARVIO_UNIT, __LINE__})

namespace tarvio {

struct LogPlace {
  const char* unit;
  int line;
};

// Logs as tq_log_func does, but does not format a message that is below the threshold: nearly all
// are, and nothing of that formatting can be seen. The arguments are evaluated all the same, and
// some of them do work.
[[gnu::format(printf, 4, 5)]] void log_line(int level, const char* unit, int line,
                                            const char* format, ...);

}  // namespace tarvio

#endif
