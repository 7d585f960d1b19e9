// Runs a command in private namespaces, with private directories at the paths that the library has
// compiled in, and a network of its own, which ends at the loopback device. Works as root and as an
// ordinary user, who is root inside; changes nothing on the host. When the command ends, everything
// that it started ends with it.

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "private_tree.h"
#include "report.h"

namespace sandbox {
namespace {

constexpr int kCannotRun = 127;

struct Plan {
  char** command = nullptr;
  std::string current_directory;
  std::vector<std::string> keep;
  uid_t user = ::geteuid();
  gid_t group = ::getegid();
  bool user_namespace = false;
  bool pid_namespace = true;
  bool network_namespace = true;
};

int exit_code(int status) {
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int wait_for(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0)
    if (errno != EINTR) die("cannot wait");
  return exit_code(status);
}

void write_text(const char* path, const std::string& text) {
  std::ofstream file(path);
  if (!(file << text << std::flush)) die(std::string("cannot write ") + path, kRemedy);
}

void become_root_inside(const Plan& plan) {
  write_text("/proc/self/setgroups", "deny");
  write_text("/proc/self/uid_map", "0 " + std::to_string(plan.user) + " 1\n");
  write_text("/proc/self/gid_map", "0 " + std::to_string(plan.group) + " 1\n");
}

// A new network has its loopback device down.
void start_loopback() {
  const int any_socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request = {};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  if (any_socket < 0 || ::ioctl(any_socket, SIOCSIFFLAGS, &request) != 0) {
    die("cannot start the loopback device", kRemedy);
  }
  ::close(any_socket);
}

// A terminal sends its signals to one group of processes; `group` becomes it.
void give_terminal_to(pid_t group) {
  const sighandler_t before = ::signal(SIGTTOU, SIG_IGN);
  ::tcsetpgrp(STDIN_FILENO, group);
  ::signal(SIGTTOU, before);
}

[[noreturn]] void run_command(const Plan& plan, bool in_foreground) {
  // The group of the outside has no number in a PID namespace: without a group of its own, a
  // command that signals its group would reach out.
  ::setpgid(0, 0);
  if (in_foreground) give_terminal_to(::getpgrp());
  ::setenv("TMPDIR", kTemporaryDirectory, 1);
  ::setenv("TARVIO_TEST_CMDLINE", kCommandLineFile, 1);
#ifdef TARVIO_FIXED_ADDRESSES
  // ThreadSanitizer of gcc 12 cannot place its shadow where a kernel randomises more bits than it
  // knew.
  ::personality(ADDR_NO_RANDOMIZE);
#endif
  ::execvp(plan.command[0], plan.command);
  std::fprintf(stderr, "sandbox: cannot run %s: %s\n", plan.command[0], std::strerror(errno));
  ::_exit(kCannotRun);
}

// Where there is no PID namespace, whose end the kernel enforces, orphans come to this process and
// are ended here until none is left.
void end_descendants() {
  const std::string children = "/proc/self/task/" + std::to_string(::getpid()) + "/children";
  do {
    std::ifstream list(children);
    for (pid_t child; list >> child;) ::kill(child, SIGKILL);
  } while (::waitpid(-1, nullptr, 0) > 0 || errno == EINTR);
}

// The first process inside: starts the command, reaps every orphan, and passes the command's end
// on.
[[noreturn]] void supervise(const Plan& plan, bool in_foreground) {
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t command = ::fork();
  if (command < 0) die("cannot fork");
  if (command == 0) run_command(plan, in_foreground);
  int status = 0;
  for (pid_t ended = 0; ended != command;) {
    ended = ::waitpid(-1, &status, 0);
    if (ended < 0 && errno != EINTR) die("cannot wait");
  }
  if (!plan.pid_namespace) end_descendants();
  ::_exit(exit_code(status));
}

[[noreturn]] void set_up_and_supervise(const Plan& plan, int no_proc_pipe, bool in_foreground) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (plan.user_namespace) become_root_inside(plan);
  if (plan.network_namespace) start_loopback();
  if (plan.pid_namespace && !mount_own_proc()) {
    if (::write(no_proc_pipe, "", 1) != 1) die("cannot report");
    ::_exit(1);
  }
  make_private_tree(plan.keep);
  if (::chdir(plan.current_directory.c_str()) != 0) die("cannot enter " + plan.current_directory);
  ::close(no_proc_pipe);
  supervise(plan, in_foreground);
}

pid_t fork_into_namespaces(const Plan& plan) {
  unsigned long flags = CLONE_NEWNS | SIGCHLD;
  if (plan.user_namespace) flags |= CLONE_NEWUSER;
  if (plan.pid_namespace) flags |= CLONE_NEWPID;
  if (plan.network_namespace) flags |= CLONE_NEWNET;
  return static_cast<pid_t>(::syscall(SYS_clone, flags, nullptr, nullptr, nullptr, nullptr));
}

// Runs the command and gives its exit status; nothing, when a PID namespace was asked for and its
// /proc cannot be mounted.
bool run(const Plan& plan, int& status) {
  int no_proc[2];
  if (::pipe2(no_proc, O_CLOEXEC) != 0) die("cannot make a pipe");
  const bool in_foreground = ::tcgetpgrp(STDIN_FILENO) == ::getpgrp();
  const pid_t inside = fork_into_namespaces(plan);
  if (inside < 0) die("cannot make private namespaces", kRemedy);
  if (inside == 0) set_up_and_supervise(plan, no_proc[1], in_foreground);
  ::close(no_proc[1]);
  char refused = 0;
  const bool without_proc = ::read(no_proc[0], &refused, 1) == 1;
  ::close(no_proc[0]);
  status = wait_for(inside);
  if (in_foreground) give_terminal_to(::getpgrp());
  return !without_proc;
}

// Root without the rights for that, as in a container, may still get them in a user namespace.
bool may_make_namespaces() {
  constexpr unsigned long kFlags = CLONE_NEWNS | CLONE_NEWNET | SIGCHLD;
  const pid_t trial = static_cast<pid_t>(::syscall(SYS_clone, kFlags, 0, 0, 0, 0));
  if (trial == 0) ::_exit(0);
  return trial > 0 && wait_for(trial) == 0;
}

Plan make_plan(char** command) {
  Plan plan;
  plan.command = command;
  plan.current_directory = std::filesystem::current_path();
  plan.keep = {plan.current_directory, std::filesystem::canonical("/proc/self/exe").parent_path(),
               TARVIO_SOURCE_DIR};
  plan.user_namespace = plan.user != 0 || !may_make_namespaces();
  return plan;
}

}  // namespace
}  // namespace sandbox

int main(int argc, char** argv) {
  const bool shares_network = argc > 1 && std::strcmp(argv[1], "--share-network") == 0;
  char** const command = argv + (shares_network ? 2 : 1);
  if (*command == nullptr) {
    std::fprintf(stderr, "usage: %s [--share-network] COMMAND [ARGUMENT]...\n", argv[0]);
    return 2;
  }
  sandbox::Plan plan = sandbox::make_plan(command);
  plan.network_namespace = !shares_network;
  int status = 0;
  if (sandbox::run(plan, status)) return status;
  plan.pid_namespace = false;
  sandbox::run(plan, status);
  return status;
}
