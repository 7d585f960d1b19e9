// One macro per level, for units. The build gives each file of a unit the name of the unit, which
// comes from the file's path; a file that is no part of a unit has no name and cannot log.
#ifndef TARVIO_SRC_UTIL_LOG_MACROS_H
#define TARVIO_SRC_UTIL_LOG_MACROS_H

#include "tarvio/log.h"

#define TQ_DEBUG(...) tq_log_func(TQ_LOG_DEBUG, TARVIO_UNIT, __LINE__, __VA_ARGS__)
#define TQ_INFO(...) tq_log_func(TQ_LOG_INFO, TARVIO_UNIT, __LINE__, __VA_ARGS__)
#define TQ_WARNING(...) tq_log_func(TQ_LOG_WARNING, TARVIO_UNIT, __LINE__, __VA_ARGS__)
#define TQ_ERROR(...) tq_log_func(TQ_LOG_ERROR, TARVIO_UNIT, __LINE__, __VA_ARGS__)

// The caller's place, for a helper that logs for it.
#define TQ_HERE (tarvio::LogPlace{TARVIO_UNIT, __LINE__})

namespace tarvio {

struct LogPlace {
  const char* unit;
  int line;
};

}  // namespace tarvio

#endif
