#include "background.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

#include "base/pipe.h"
#include "settings/command_line.h"

namespace tarviod {

namespace {

[[noreturn]] void end_with_child(pid_t child, const tarvio::Fd& ready) {
  char byte = 0;
  if (tarvio::read_some(ready.get(), {&byte, 1}) == 1) _exit(0);
  int status = 0;
  const bool ended = waitpid(child, &status, 0) == child;
  _exit(ended && WIFEXITED(status) ? WEXITSTATUS(status) : kExitFailure);
}

}  // namespace

Background::Background(bool wanted) {
  if (!wanted) return;
  tarvio::Pipe pipe;
  (void)fflush(nullptr);
  const pid_t child = pipe.valid() ? fork() : -1;
  if (child < 0) {
    (void)fprintf(stderr, "tarviod: cannot go to the background: %s\n", strerror(errno));
    exit(kExitFailure);
  }
  if (child > 0) {
    pipe.write_end.reset();
    end_with_child(child, pipe.read_end);
  }
  ready_ = std::move(pipe.write_end);
  (void)setsid();
  (void)chdir("/");
}

void Background::ready() {
  if (!ready_.valid()) return;
  (void)fflush(nullptr);
  const tarvio::Fd null(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (null.valid()) (void)dup2(null.get(), stream);
  }
  (void)tarvio::write_all(ready_.get(), "\n");
  ready_.reset();
}

}  // namespace tarviod
