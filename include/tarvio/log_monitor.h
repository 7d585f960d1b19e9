/* The log monitor: reads the new lines of the system log, takes them apart, matches them against hooks,
 * and turns what was seen into status changes. It has no thread: the host drives it.
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

/* A line of the system log, taken apart. Release it with free() for ident, message and the record. */
typedef struct tq_syslog_line {
  int32_t level; /* 0 debug, info, notice; 1 warning; 2 err, crit, alert, emerg; -1 none of these */
  char *ident;   /* the program, up to its colon, such as "clock[12]" */
  char *message; /* what follows the colon, without the line end */
} tq_syslog_line;

/* The operations of a log binding, in their fixed order. */
typedef struct tq_log_binding {
  int (*setup)(void);
  int (*start_monitor)(void *argument);
  int (*stop_monitor)(void *argument);
  int (*set_log_hook)(char *hook);
  int (*remove_log_hook)(const char *hook);
} tq_log_binding;

TQ_BEGIN_DECLS

/* The hooks: texts to look for in the idents of lines, in the order of their setting. Null until
 * tq_setup_log_manager ran. The strings are those that the host gave. */
extern tq_list_t *syslog_hook;

/* A copy of the newest line that tq_log_read found, line end included; null before it found one. The
 * library owns it: each read that finds lines frees it and makes a new one. A host that looks at the
 * log from another place sets it to a string from malloc, or to null. */
extern char *tq_last_syslog;

/* Reserved for the monitor; nothing reads or writes it. */
extern void *tq_log_monitor;

/* Sets the monitor up with the syslog binding and an empty list of hooks. The host calls it once, after
 * the application manager; a second call loses the hooks. Returns 0.
 * Source: log/tq_log_manager */
int tq_setup_log_manager(void);

/* Start and stop the monitor, which is no work for the syslog binding: the argument is passed on and
 * not used. Return 0; EINVAL (22) before set-up.
 * Source: log/tq_log_manager */
int tq_start_monitor(void *argument);
int tq_stop_monitor(void *argument);

/* Adds a hook, unless an equal one is there.
 *
 * hook  from malloc. The pointer itself is kept, so leave the string alone until the hook is removed.
 *
 * Returns 0; ENOMEM (12) when memory runs out; EINVAL (22) for a null hook and before set-up. Every
 * hook that is added costs a further copy of its text for good.
 * Source: log/tq_log_manager */
int tq_set_log_hook(char *hook);

/* Removes a hook and frees its string. For a text that is no hook the last hook is removed, and its
 * string is not freed.
 *
 * Returns 0, also when there is no hook; EINVAL (22) for a null hook and before set-up.
 * Source: log/tq_log_manager */
int tq_remove_log_hook(const char *hook);

/* Sets the status of an application after a line of the log. Not by force: an error stays.
 *
 * state   TQ_STATE_... or the level of a parsed line; anything but 0, 1 and 2 counts as 0.
 * detail  always give one; see tq_set_status2.
 *
 * Returns what tq_set_status2 returns, and logs it at level 3 when that is not 0. May be called from any
 * thread.
 * Source: log/tq_log_manager */
int tq_change_status_by_log(const char *name, int32_t state, const char *detail);

/* Returns the record of the syslog binding, filled. It is the library's and always the same.
 * Source: log/tq_syslog_binding */
tq_log_binding *tq_get_syslog_binding(void);

/* The operations of the syslog binding: what the functions above do after set-up.
 * Source: log/tq_syslog_binding */
int tq_syslog_setup_log_manager(void);
int tq_syslog_start_monitor(void *argument);
int tq_syslog_stop_monitor(void *argument);
int tq_syslog_set_log_hook(char *hook);
int tq_syslog_remove_log_hook(const char *hook);

/* Does nothing and returns its argument.
 * Source: log/tq_syslog_binding */
void *tq_monitor_syslog(void *value);

/* Runs a command and gets what it prints behind a known line.
 *
 * command    as in tq_create_process; no shell reads it.
 * last       the line to look for, line end included, or null: the lines behind the last one that
 *            equals it are new, or all lines when none does.
 * new_lines  list to append the new lines to, line ends included; free them with free() each, or the
 *            list with tq_list_free(new_lines, 1).
 *
 * A line of 255 bytes or more comes in pieces of 254 bytes, each of them a line to this function. A
 * zero byte cuts the line, or the piece, that it stands in. When there are new lines, tq_last_syslog
 * becomes a copy of the last one of them.
 *
 * Prints " dup " and the line for every line that it reads, and " this line is match!" behind one that
 * equals `last`, on standard output. Waits for the end of the output, not for the command: a host that
 * does not ignore SIGCHLD has an ended child to wait for. Every call leaves two descriptors open for
 * good, as tq_create_process does. A command that cannot be run prints nothing.
 *
 * Returns 0; the result of tq_create_process; ENOMEM (12) when memory ran out, EINVAL (22) for a null
 * command or list: the list and tq_last_syslog are then as they were.
 * Source: log/tq_syslog_binding */
int tq_log_read(const char *command, const char *last, tq_list_t *new_lines);

/* Takes a line of the system log apart: "Jan 12 00:00:12 host user.info clock[12]: text".
 *
 * Month, day, time and host are read over. A level field without a dot is the level as a whole, and the
 * level is found by the text in it: "debug", "info", "notice", "warn", "err", "crit", "alert", "emerg",
 * looked for in this order. Leading colons of the ident are skipped; its leading blanks are not.
 *
 * Returns the record; null for a null line, a month that tq_get_month does not know, a mark line (whose
 * level field holds "--"), a line that ends before its message, and when memory runs out.
 * Source: log/tq_syslog_binding */
tq_syslog_line *tq_parse_syslog(const char *line);

/* Returns the index of the first month, from 0, whose three letters begin like the text; -1 when there
 * is none and for null. Only the text's first three bytes count, and a shorter text stands for all
 * that begin with it: "J" and "" are 0.
 * Source: log/tq_syslog_binding */
int tq_get_month(const char *text);

/* Returns the last hook, in list order, that the ident of a line contains, or null; null for a null line
 * and before set-up. The string is the hook itself.
 * Source: log/tq_syslog_binding */
const char *tq_check_log_hook(const tq_syslog_line *line);

TQ_END_DECLS

#endif
