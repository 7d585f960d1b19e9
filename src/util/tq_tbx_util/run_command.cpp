#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tarvio/tbx.h"
#include "util/log_macros.h"

namespace {

constexpr char kRunCommand[] = "tq_run_command";

// The environment with the C locale, so that a tool prints what its readers look for. Not by
// setenv: if another thread was inside it at the fork, its lock stays held in the child for ever.
char** environment_in_c_locale() {
  static constexpr char kLocale[] = "LC_ALL=";
  static char c_locale[] = "LC_ALL=C";
  size_t count = 0;
  while (environ != nullptr && environ[count] != nullptr) ++count;
  auto* const result = static_cast<char**>(malloc((count + 2) * sizeof(char*)));
  if (result == nullptr) return environ;
  size_t kept = 0;
  for (size_t i = 0; i < count; ++i) {
    if (strncmp(environ[i], kLocale, sizeof(kLocale) - 1) != 0) result[kept++] = environ[i];
  }
  result[kept++] = c_locale;
  result[kept] = nullptr;
  return result;
}

[[noreturn]] void become_program(char* const* argv) {
  environ = environment_in_c_locale();
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
