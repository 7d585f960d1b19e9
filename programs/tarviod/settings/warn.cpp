#include "warn.h"

#include <stdio.h>

#include "tarvio/log.h"

namespace tarviod {

void warn(const char* what, const char* why, int line) {
  (void)fprintf(stderr, "tarviod: %s: %s\n", what, why);
  tq_log_func(TQ_LOG_WARNING, TARVIO_UNIT, line, "%s: %s", what, why);
}

void inform(const char* what, const char* state, int line) {
  (void)printf("tarviod: %s: %s\n", what, state);
  tq_log_func(TQ_LOG_WARNING, TARVIO_UNIT, line, "%s: %s", what, state);
}

}  // namespace tarviod
