/* The log monitor: reads the new lines of the system log, parses them, matches them against hooks, and
 * turns the matches into status changes. It has no thread: the host drives it.
 *
 *   tq_list_t *lines = tq_list_create();
 *   tq_log_read("cat /var/log/messages", tq_last_syslog, lines);
 *   for each line:
 *     tq_syslog_line *parsed = tq_parse_syslog(line);
 *     if (tq_check_log_hook(parsed) != NULL)
 *       tq_change_status_by_log("clock", parsed->level, parsed->message);
 *
 * The hooks and tq_last_syslog are for one thread, the one that runs this cycle. */
#ifndef TARVIO_LOG_MONITOR_H
#define TARVIO_LOG_MONITOR_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"

/* A parsed line of the system log. Free ident, message and the record. */
typedef struct tq_syslog_line {
  int32_t level; /* 0 debug, info, notice; 1 warning; 2 err, crit, alert, emerg; -1 none of these */
  char *ident;   /* the program, up to its colon, such as "clock[12]" */
  char *message; /* what follows the colon, without the line end */
} tq_syslog_line;

/* The operations of a log binding, in their fixed order. */
typedef struct tq_log_binding {
  int (*setup)(void);                       /* called by tq_setup_log_manager */
  int (*start_monitor)(void *argument);     /* what tq_start_monitor does */
  int (*stop_monitor)(void *argument);      /* what tq_stop_monitor does */
  int (*set_log_hook)(char *hook);          /* what tq_set_log_hook does */
  int (*remove_log_hook)(const char *hook); /* what tq_remove_log_hook does */
} tq_log_binding;

TQ_BEGIN_DECLS

/* The hooks: texts to look for in the idents of lines, in the order in which they were set. Null until
 * tq_setup_log_manager has run. The strings are the host's own. */
extern tq_list_t *syslog_hook;

/* A copy of the newest line that tq_log_read found, including its line end; null until it finds one.
 * The library owns it: each read that finds lines replaces and frees it. To read the log from another
 * position, set it to a string from malloc, or to null. */
extern char *tq_last_syslog;

/* Reserved for the monitor; nothing reads or writes it. */
extern void *tq_log_monitor;

/* Sets the monitor up with the syslog binding and an empty list of hooks. The host calls it once, after
 * the application manager; a second call loses the hooks. Returns 0.
 * Source: log/tq_log_manager */
int tq_setup_log_manager(void);

/* Start and stop the monitor. The syslog binding has nothing to do for it and ignores the argument.
 * Return 0; EINVAL (22) before set-up.
 * Source: log/tq_log_manager */
int tq_start_monitor(void *argument);
int tq_stop_monitor(void *argument);

/* Adds a hook, unless an equal one is already set.
 *
 * hook  from malloc. The pointer itself is kept, so do not change or free the string until the hook is
 *       removed.
 *
 * Returns 0; ENOMEM (12) if memory runs out; EINVAL (22) for a null hook and before set-up. Every hook
 * that is added leaks a copy of its text.
 * Source: log/tq_log_manager */
int tq_set_log_hook(char *hook);

/* Removes a hook and frees its string. If the text is not a hook, the last hook is removed and its
 * string is not freed.
 *
 * Returns 0, even if no hook is set; EINVAL (22) for a null hook and before set-up.
 * Source: log/tq_log_manager */
int tq_remove_log_hook(const char *hook);

/* Sets the status of an application from a line of the log. The change is not forced: an error stays.
 *
 * state   TQ_STATE_... or the level of a parsed line; anything but 0, 1 and 2 counts as 0.
 * detail  always give one; see tq_set_status2.
 *
 * Returns the result of tq_set_status2, and logs it at level 3 unless it is 0. May be called from any
 * thread.
 * Source: log/tq_log_manager */
int tq_change_status_by_log(const char *name, int32_t state, const char *detail);

/* Fills and returns the record of the syslog binding, the same one in every call. The library owns it.
 * Source: log/tq_syslog_binding */
tq_log_binding *tq_get_syslog_binding(void);

/* The operations of the syslog binding, which the functions above call.
 * Source: log/tq_syslog_binding */
int tq_syslog_setup_log_manager(void);
int tq_syslog_start_monitor(void *argument);
int tq_syslog_stop_monitor(void *argument);
int tq_syslog_set_log_hook(char *hook);
int tq_syslog_remove_log_hook(const char *hook);

/* Does nothing and returns its argument.
 * Source: log/tq_syslog_binding */
void *tq_monitor_syslog(void *value);

/* Runs a command and collects what it prints after a known line.
 *
 * command    as in tq_create_process; not interpreted by a shell.
 * last       the line to look for, including its line end, or null: the lines after the last one that
 *            equals it are new, or all lines if none does.
 * new_lines  list to append the new lines to, including their line ends; free each one with free(), or
 *            all with tq_list_free(new_lines, 1).
 *
 * A line of 255 bytes or more comes in pieces of 254 bytes, each of them a line to this function. A
 * zero byte cuts the line or piece that contains it. If there are new lines, tq_last_syslog becomes a
 * copy of the last one.
 *
 * Prints " dup " and the line for every line that it reads, and " this line is match!" after one that
 * equals `last`, on standard output. Waits for the end of the output, not for the command: a host that
 * does not ignore SIGCHLD must wait for the ended child. Every call leaves two descriptors open, as
 * tq_create_process does, unless TQ_REPAIR_PROCESSES is set (see repairs.h). A command that cannot be run
 * yields no lines.
 *
 * Returns 0; the result of tq_create_process; ENOMEM (12) if memory runs out; EINVAL (22) for a null
 * command or list. On failure the list and tq_last_syslog are unchanged.
 * Source: log/tq_syslog_binding */
int tq_log_read(const char *command, const char *last, tq_list_t *new_lines);

/* Parses a line of the system log: "Jan 12 00:00:12 host user.info clock[12]: text".
 *
 * Month, day, time and host are skipped. The level is the first of "debug", "info", "notice", "warn",
 * "err", "crit", "alert" and "emerg" that the level field contains, after its dot if it has one.
 * Leading colons of the ident are skipped; its leading blanks are not.
 *
 * Returns the record; null for a null line, a month that tq_get_month does not know, a mark line (whose
 * level field contains "--"), a line that ends before its message, and if memory runs out.
 * Source: log/tq_syslog_binding */
tq_syslog_line *tq_parse_syslog(const char *line);

/* Returns the index, from 0, of the first month whose three letters begin like the text; -1 if there is
 * none, and for null. Only the first three bytes of the text count, and a shorter text matches the first
 * month that begins with it: "J" and "" are 0.
 * Source: log/tq_syslog_binding */
int tq_get_month(const char *text);

/* Returns the last hook, in list order, that the ident of a line contains, or null; null for a null line
 * and before set-up. The string is the hook itself.
 * Source: log/tq_syslog_binding */
const char *tq_check_log_hook(const tq_syslog_line *line);

TQ_END_DECLS

#endif
