/* Child processes and shell commands. */
#ifndef TARVIO_PROCESS_H
#define TARVIO_PROCESS_H

#include "tarvio/base.h"
#include "tarvio/list.h"

/* Streams of the child that tq_create_process connects to pipes; a set of bits. */
enum {
  TQ_PIPE_STDIN = 1,  /* the caller gets the write end */
  TQ_PIPE_STDOUT = 2, /* the caller gets the read end */
  TQ_PIPE_STDERR = 4  /* the caller gets the read end */
};

TQ_BEGIN_DECLS

/* Starts a program as a child process and does not wait for it.
 *
 * command    split at blanks only: no quoting, tabs are part of a word; the program is searched on
 *            PATH.
 * flags      TQ_PIPE_... bits; streams without a bit are the caller's own.
 * pid        receives the process id, or -1 if fork failed.
 * stdin_fd, stdout_fd, stderr_fd
 *            receive the caller's ends (close-on-exec) for the bits set; may be null otherwise.
 *
 * Every call leaves two further descriptors open for good, in the caller and in the child, unless
 * TQ_REPAIR_PROCESSES is set (see repairs.h): raise RLIMIT_NOFILE accordingly. A program that cannot be
 * executed ends the child with the errno value of execvp as its exit status, an empty command with 22;
 * the caller does not see it.
 *
 * Returns 0, even if fork failed; the errno value of a failed pipe (pipes made before it stay open,
 * unless TQ_REPAIR_PROCESSES is set); EINVAL (22) for a null command, pid, or descriptor that a bit asks
 * for.
 * Source: util/tq_unix_process */
int tq_create_process(const char *command, unsigned flags, int *pid, int *stdin_fd, int *stdout_fd,
                      int *stderr_fd);

/* Replaces the calling process by a program; the command is split as in tq_create_process.
 *
 * Returns only on failure: the errno value of execvp; EINVAL (22) for a command without a word, ENOMEM
 * (12) when memory runs out.
 * Source: util/tq_unix_process */
int tq_exec_command(const char *command);

/* Returns 0 for every process, running or not: no call of this library detects that one has ended.
 * Source: util/tq_unix_process */
int tq_is_process_alive(int pid);

/* Sleeps one second and asks tq_is_process_alive, up to `tries` times (at least once) while the answer
 * is not 0. Returns the last answer.
 * Source: util/tq_unix_process */
int tq_wait_process_exit(int pid, int tries);

/* Ends a process in up to three stages, each followed by tq_wait_process_exit: the stop command,
 * SIGTERM, SIGKILL.
 *
 * stop_command  started as a child of its own, or null for none.
 * pgrp          process group that gets the signals: they reach a child only when it leads a group.
 * tries         seconds to wait in each stage.
 *
 * Because tq_is_process_alive answers 0, the call ends after the first stage that runs, in about one
 * second: with a stop command no signal is sent, without one only SIGTERM.
 *
 * Returns 0, or EINPROGRESS (115) if the process outlived all stages.
 * Source: util/tq_unix_process */
int tq_terminate_process(const char *stop_command, int pgrp, int tries);

/* Runs a command line under the shell and collects what it prints on standard output.
 *
 * command  the whole line; names in it must not contain characters that are special to the shell.
 * lines    list to append to; one string per line, line end included, a line of 256 bytes or more in
 *          pieces of 255; free them with tq_list_free(lines, 1).
 *
 * The exit status is ignored. Waits for the command.
 *
 * Returns 0; the errno value of a failed popen, with nothing appended; ENOMEM (12) when memory runs out,
 * with the lines so far; EINVAL (22) for a null argument.
 * Source: util/tq_unix_process */
int tq_system_command(const char *command, tq_list_t *lines);

TQ_END_DECLS

#endif
