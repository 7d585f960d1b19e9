#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <span>

#include "base/line_reader.h"
#include "base/list_appender.h"
#include "base/owners.h"
#include "tarvio/file.h"
#include "tarvio/process.h"
#include "tarvio/text.h"
#include "util/log_macros.h"
#include "util/tq_repairs.h"

namespace {

constexpr size_t kPathSize = 4096;

// One standard stream of the child and the pipe that takes its place.
struct StreamPipe {
  unsigned flag;
  int stream;
  bool child_reads;
  int* caller_end;
  int ends[2];  // read, write

  [[nodiscard]] int child_fd() const { return ends[child_reads ? 0 : 1]; }
  [[nodiscard]] int caller_fd() const { return ends[child_reads ? 1 : 0]; }
};

void take_back(std::span<const StreamPipe> pipes) {
  for (const StreamPipe& pipe : pipes) {
    if (pipe.ends[0] < 0) continue;
    for (const int end : pipe.ends) (void)close(end);
    *pipe.caller_end = -1;
  }
}

// Runs in the child.
void become_stream(const StreamPipe& pipe) {
  (void)dup2(pipe.child_fd(), pipe.stream);
  // In a caller without standard streams its own end may have the number of this stream.
  if (pipe.caller_fd() != pipe.stream) (void)close(pipe.caller_fd());
}

}  // namespace

int tq_create_process(const char* command, unsigned flags, int* pid, int* stdin_fd, int* stdout_fd,
                      int* stderr_fd) {
  std::array<StreamPipe, 3> pipes = {{
      {TQ_PIPE_STDOUT, STDOUT_FILENO, false, stdout_fd, {-1, -1}},
      {TQ_PIPE_STDIN, STDIN_FILENO, true, stdin_fd, {-1, -1}},
      {TQ_PIPE_STDERR, STDERR_FILENO, false, stderr_fd, {-1, -1}},
  }};
  if (command == nullptr || pid == nullptr) return EINVAL;
  for (const StreamPipe& pipe : pipes) {
    if ((flags & pipe.flag) != 0 && pipe.caller_end == nullptr) return EINVAL;
  }

  // Never used and never closed, here and in the child: each start costs two descriptors (oddity
  // 42).
  int unused[2];
  const bool is_repaired = tarvio::is_repaired(TQ_REPAIR_PROCESSES);
  if (!is_repaired && ::pipe(unused) != 0) return errno;

  for (StreamPipe& pipe : pipes) {
    if ((flags & pipe.flag) == 0) continue;
    if (pipe2(pipe.ends, O_CLOEXEC) != 0) {
      const int error = errno;
      if (is_repaired) take_back(pipes);  // else the pipes so far stay open (oddity 43)
      return error;
    }
    *pipe.caller_end = pipe.caller_fd();
  }

  const pid_t child = fork();
  if (child == 0) {
    for (const StreamPipe& pipe : pipes) {
      if ((flags & pipe.flag) != 0) become_stream(pipe);
    }
    // Nothing but the exit status shows a program that cannot be executed (oddity 45). Not exit:
    // the child would print what the host has buffered a second time.
    _exit(tq_exec_command(command));
  }
  *pid = child;  // -1 is all that shows a failed fork (oddity 44); nobody waits (oddity 49)
  for (const StreamPipe& pipe : pipes) {
    if ((flags & pipe.flag) != 0) (void)close(pipe.child_fd());
  }
  return 0;
}

int tq_exec_command(const char* command) {
  if (command == nullptr) return EINVAL;
  // Without quotes, escapes and tabs (oddity 46).
  const tarvio::Allocated<char*> argv(tq_strtok(command, " "));
  if (argv == nullptr) return ENOMEM;
  const tarvio::CString words(argv.get()[0]);
  if (words == nullptr) return EINVAL;
  execvp(words.get(), argv.get());
  return errno;
}

int tq_is_process_alive(int pid) {
  char path[kPathSize];
  (void)snprintf(path, sizeof path, "/proc/%d/stat", pid);
  int32_t exists = 0;
  return tq_file_exist(path, &exists);  // 0, and not the flag: all count as ended (oddity 47)
}

int tq_wait_process_exit(int pid, int tries) {
  int alive = 0;
  int count = 0;
  do {
    (void)sleep(1);
    alive = tq_is_process_alive(pid);
    ++count;
  } while (alive != 0 && count < tries);
  return alive;
}

// In practice the first stage is the last one (oddity 48).
int tq_terminate_process(const char* stop_command, int pgrp, int tries) {
  if (stop_command != nullptr) {
    int stopper = 0;
    (void)tq_create_process(stop_command, 0, &stopper, nullptr, nullptr, nullptr);
    if (tq_wait_process_exit(pgrp, tries) == 0) return 0;
  }
  for (const int signal : {SIGTERM, SIGKILL}) {
    (void)killpg(pgrp, signal);  // which reaches only a child that leads a group
    if (tq_wait_process_exit(pgrp, tries) == 0) return 0;
  }
  return EINPROGRESS;
}

// The exit status does not count, and a long line comes in pieces (oddity 50).
int tq_system_command(const char* command, tq_list_t* lines) {
  if (command == nullptr || lines == nullptr) return EINVAL;
  TQ_DEBUG("system execute command - %s", command);
  const tarvio::Stream output(popen(command, "re"));
  if (output == nullptr) return errno;
  tarvio::ListAppender appender(*lines);
  tarvio::PieceReader piece(fileno(output.get()));
  while (piece.next()) {
    if (!appender.append_copy(piece.text())) return ENOMEM;
  }
  return 0;
}
