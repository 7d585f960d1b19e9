#include "warn.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "tarvio/log.h"

namespace tarviod {

void warn(const char* what, const char* why, int line) {
  (void)fprintf(stderr, "tarviod: %s: %s\n", what, why);
  tq_log_func(TQ_LOG_WARNING, TARVIO_UNIT, line, "%s: %s", what, why);
}

bool refuse_file(const char* path, int line) {
  char why[128];
  (void)snprintf(why, sizeof why, "%s: name a file in a directory that can be written to",
                 strerror(errno));
  warn(path, why, line);
  return false;
}

void inform(const char* what, const char* state, int line) {
  (void)printf("tarviod: %s: %s\n", what, state);
  tq_log_func(TQ_LOG_WARNING, TARVIO_UNIT, line, "%s: %s", what, state);
}

}  // namespace tarviod
