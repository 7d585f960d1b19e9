#include "run_program.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <limits.h>
#include <pwd.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "base/pipe.h"
#include "keeper.h"

namespace tarviod {

namespace {

using runtime::ExitKind;
using tarvio::Fd;

constexpr int kCannotRun = 127;

// The keeper's listening socket in a child that hangs would look like a keeper.
void close_all_but(int channel, int copy) {
  unsigned from = STDERR_FILENO + 1;
  for (const int kept : {std::min(channel, copy), std::max(channel, copy)}) {
    if (kept < 0) continue;
    const auto number = static_cast<unsigned>(kept);
    if (number > from) (void)close_range(from, number - 1, 0);
    from = number + 1;
  }
  // Where the kernel lacks the call, they are closed when the program is executed.
  (void)close_range(from, ~0U, 0);
}

bool become_stream(int fd, int stream) {
  if (fd >= 0) return dup2(fd, stream) >= 0;
  const Fd null(open("/dev/null", O_RDWR | O_CLOEXEC));
  return null.valid() && dup2(null.get(), stream) >= 0;
}

bool take_streams(const Streams& streams) {
  return become_stream(-1, STDIN_FILENO) && become_stream(streams.output.get(), STDOUT_FILENO) &&
         become_stream(streams.errors.get(), STDERR_FILENO);
}

// A program that is to ignore signals says so itself; SIGCHLD is ignored by contract.
void reset_signals() {
  // posix_spawn leaves signals ignored that belong to the C library, which would not set them back.
  constexpr struct sigaction kDefault = {};
  for (int number = 1; number < NSIG; ++number) {
    (void)syscall(SYS_rt_sigaction, number, &kDefault, nullptr, NSIG / CHAR_BIT);
  }
  (void)signal(SIGCHLD, SIG_IGN);
  sigset_t none;
  (void)sigemptyset(&none);
  (void)sigprocmask(SIG_SETMASK, &none, nullptr);
}

// As root, and not as the application's user.
bool open_output(const char* output) {
  if (output[0] != '/') return true;
  const Fd file(open(output, kOutputFlags, kOutputMode));
  return file.valid() && fcntl(file.get(), F_SETFL, O_APPEND) == 0 &&
         become_stream(file.get(), STDOUT_FILENO) && become_stream(file.get(), STDERR_FILENO);
}

// 0 leaves the priority and the limits as they are.
bool set_priority(int nice) { return nice == 0 || setpriority(PRIO_PROCESS, 0, nice) == 0; }

bool limit(auto resource, int64_t value) {
  if (value == 0) return true;
  const auto most = static_cast<rlim_t>(value);
  const rlimit both = {.rlim_cur = most, .rlim_max = most};
  return setrlimit(resource, &both) == 0;
}

bool set_limits(const AppLimits& limits) {
  return limit(RLIMIT_AS, limits.memory_bytes) && limit(RLIMIT_NOFILE, limits.open_files) &&
         limit(RLIMIT_NPROC, limits.processes);
}

bool refuse_unknown_name() {
  errno = EINVAL;
  return false;
}

bool take_group(const char* name) {
  const group* const entry = getgrnam(name);
  return entry == nullptr ? refuse_unknown_name() : setgid(entry->gr_gid) == 0;
}

// Without a group of its own, the application has that of its user.
bool take_user_and_group(const char* name, const char* group) {
  if (name[0] == '\0') return group[0] == '\0' || take_group(group);
  const passwd* const user = getpwnam(name);
  if (user == nullptr) return refuse_unknown_name();
  const uid_t number = user->pw_uid;
  return initgroups(name, user->pw_gid) == 0 &&
         (group[0] == '\0' ? setgid(user->pw_gid) == 0 : take_group(group)) && setuid(number) == 0;
}

// Of no kind, or, with errno, of what cannot be had.
ExitKind become(const Program& program) {
  const RunSettings& settings = program.settings;
  if (setsid() < 0 || setenv(kApplicationVariable, program.application, 1) != 0) {
    return ExitKind::kNotRun;
  }
  if (!open_output(settings.output.get())) return ExitKind::kNoOutput;
  if (!set_priority(settings.nice) || !set_limits(settings.limits)) return ExitKind::kNoLimits;
  const bool is_user = take_user_and_group(settings.user.get(), settings.group.get());
  return is_user ? ExitKind::kNone : ExitKind::kNoUser;
}

void execute(const char* file, int copy) {
  char path[40];
  (void)snprintf(path, sizeof path, "/proc/self/fd/%d", copy);
  // The shell that runs a script opens it by its name.
  if (copy >= 0 && fcntl(copy, F_SETFD, 0) != 0) return;
  const char* const words[] = {copy >= 0 ? path : file, nullptr};
  (void)execvp(words[0], const_cast<char* const*>(words));  // by a shell if it begins without "#!"
}

}  // namespace

void run_program(const Program& program, int channel) {
  ExitKind kind = ExitKind::kNoOutput;
  if (take_streams(program.streams)) {
    close_all_but(channel, program.copy_fd);
    char byte = 0;
    if (tarvio::read_some(channel, {&byte, 1}) != 1) _exit(kCannotRun);
    kind = become(program);
    if (kind == ExitKind::kNone) {
      // Not before: where there are threads, the C library changes the user by a signal.
      reset_signals();
      execute(program.file, program.copy_fd);
      kind = ExitKind::kNotRun;
    }
  }
  const runtime::AppExit failure = {.kind = kind, .number = errno};
  (void)send(channel, &failure, sizeof failure, MSG_NOSIGNAL);
  _exit(kCannotRun);
}

}  // namespace tarviod
