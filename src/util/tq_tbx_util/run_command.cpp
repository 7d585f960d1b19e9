#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tarvio/tbx.h"
#include "util/log_macros.h"

namespace {

constexpr char kRunCommand[] = "tq_run_command";

[[noreturn]] void become_program(char* const* argv) {
  execvp(argv[0], argv);
  TQ_DEBUG("%s: execvp error - errno=%d, %s ", kRunCommand, errno, strerror(errno));
  // Not exit, which would run the host's own handlers and flush its buffers a second time.
  (void)fflush(stdout);
  _exit(1);
}

// Four kinds of numbers, of which the caller can only compare 0 (oddity 51).
int decode(int status) {
  if (WIFEXITED(status)) {
    TQ_DEBUG("%s: exit, status=%d ", kRunCommand, WEXITSTATUS(status));
    return WEXITSTATUS(status);
  }
  if (WIFSIGNALED(status)) {
    TQ_DEBUG("%s: signal, sig=%d ", kRunCommand, WTERMSIG(status));
    return WTERMSIG(status);
  }
  TQ_DEBUG("%s: abnormal exit ", kRunCommand);
  return status;
}

}  // namespace

// The count is not used (oddity 52).
// Errors are logged at the lowest level as well (oddity 53).
int tq_run_command(int /*argc*/, char* const* argv) {
  if (argv == nullptr || argv[0] == nullptr) return EINVAL;
  (void)fflush(stdout);  // or the child would print a copy of what is buffered
  const pid_t child = fork();
  if (child == 0) become_program(argv);
  if (child < 0) {
    const int error = errno;
    TQ_DEBUG("%s: fork error - errno=%d, %s ", kRunCommand, error, strerror(error));
    return error;
  }

  int status = 0;
  // Once, and in vain where SIGCHLD is ignored (oddity 54).
  const int wait_error = waitpid(child, &status, 0) < 0 ? errno : 0;
  TQ_DEBUG("%s: child(PID=%d) finished! ", kRunCommand, child);
  if (wait_error != 0) return wait_error;
  const int result = decode(status);
  if (status != 0) TQ_DEBUG("%s: run command error - status=%d ", kRunCommand, result);
  return result;
}
