#include "background.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "command_line.h"

namespace tarviod {

namespace {

[[noreturn]] void end_with_child(pid_t child, int ready_fd) {
  char byte = 0;
  ssize_t count = -1;
  do {
    count = read(ready_fd, &byte, 1);
  } while (count < 0 && errno == EINTR);
  if (count == 1) _exit(0);
  int status = 0;
  const bool ended = waitpid(child, &status, 0) == child;
  _exit(ended && WIFEXITED(status) ? WEXITSTATUS(status) : kExitFailure);
}

}  // namespace

Background::Background(bool wanted) {
  if (!wanted) return;
  int ends[2];
  const bool piped = pipe2(ends, O_CLOEXEC) == 0;
  (void)fflush(nullptr);
  const pid_t child = piped ? fork() : -1;
  if (child < 0) {
    (void)fprintf(stderr, "tarviod: cannot go to the background: %s\n", strerror(errno));
    exit(kExitFailure);
  }
  if (child > 0) {
    (void)close(ends[1]);
    end_with_child(child, ends[0]);
  }
  (void)close(ends[0]);
  ready_fd_ = ends[1];
  (void)setsid();
  (void)chdir("/");
}

void Background::ready() {
  if (ready_fd_ < 0) return;
  (void)fflush(nullptr);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (null >= 0) (void)dup2(null, stream);
  }
  if (null > STDERR_FILENO) (void)close(null);
  (void)write(ready_fd_, "", 1);
  (void)close(ready_fd_);
  ready_fd_ = -1;
}

}  // namespace tarviod
