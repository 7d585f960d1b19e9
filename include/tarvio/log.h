/* Logging: one process-wide facility over syslog, with one threshold. */
#ifndef TARVIO_LOG_H
#define TARVIO_LOG_H

#include "tarvio/base.h"

/* Levels of a message, in rising order of severity. Any other number is logged like TQ_LOG_DEBUG, but
 * never printed. */
enum {
  TQ_LOG_DEBUG = 0,   /* LOG_DEBUG, and also printed on standard output */
  TQ_LOG_INFO = 1,    /* LOG_INFO */
  TQ_LOG_WARNING = 2, /* LOG_WARNING; the threshold at load time */
  TQ_LOG_ERROR = 3    /* LOG_ERR */
};

TQ_BEGIN_DECLS

/* Opens the system log with ident "tarvio", option LOG_CONS and facility LOG_USER. The host process
 * calls it once, before it logs; nothing in the library calls it. Without it, messages are sent with
 * the defaults of syslog.
 * Source: util/tq_log */
void tq_log_init(void);

/* Sets the threshold: messages of a level below it are dropped.
 *
 * level  any number; 0 passes everything, 4 or more silences the levels 0 to 3.
 *
 * Applies to all later messages, in every thread.
 * Source: util/tq_log */
void tq_set_log_level(int level);

/* Logs one message: the formatted text, then " -  FILE LINE" and a line feed, as one syslog line; a
 * message of level 0 also goes to standard output, after syslog.
 *
 * level   one of the levels above.
 * file    source unit of the caller, such as "util/tq_load_conf".
 * line    line number of the call.
 * format  printf format of the message, followed by its arguments.
 *
 * The whole line is truncated to 1023 bytes. A message below the threshold is still formatted, so its
 * arguments must be valid. errno is preserved.
 * Source: util/tq_log */
void tq_log_func(int level, const char *file, int line, const char *format, ...)
    TQ_PRINTF_FORMAT(4, 5);

TQ_END_DECLS

#endif
