// captive TRIAL...: tries each, in its current directory and in OUTSIDE, and prints a line each:
// what was tried, and what came of it.
#include <fcntl.h>
#include <linux/keyctl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/personality.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::string outside(const char* name) { return std::string(::getenv("OUTSIDE")) + '/' + name; }

long write_bytes(size_t size) {
  const int file = ::open("bytes", O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const std::vector<char> bytes(size);
  const ssize_t count = ::write(file, bytes.data(), size);
  return count == static_cast<ssize_t>(size) ? ::write(file, "x", 1) : -1;
}

long open_many() {
  long result = 0;
  std::vector<int> files;
  for (int count = 0; count < 100 && result == 0; ++count) {
    files.push_back(::open("/dev/null", O_RDONLY));
    if (files.back() < 0) result = -1;
  }
  const int error = errno;
  for (const int file : files) ::close(file);
  errno = error;
  return result;
}

// Stays when this process has ended: for ten minutes, unless somebody kills it.
long leave_behind() {
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  ::alarm(600);
  ::pause();
  ::_exit(0);
}

// Of an argument, which the kernel cuts off.
constexpr long kUpperHalf = sizeof(long) > 4 ? static_cast<long>(uint64_t{1} << 32) : 0;

long ask_limits_of_parent(long upper_half) {
  rlimit64 limit = {};
  return ::syscall(SYS_prlimit64, upper_half | ::getppid(), RLIMIT_NOFILE, nullptr, &limit);
}

// Of linux/fs.h, which does not go with sys/mount.h.
constexpr unsigned long kSetFlags = _IOW('f', 2, long);

long set_flags_outside() {
  const int file = ::open(outside("file").c_str(), O_RDONLY);
  const long flags = 0;
  return ::ioctl(file, kSetFlags, &flags);
}

long set_time_outside() {
  const timespec times[2] = {};
  return ::utimensat(AT_FDCWD, outside("file").c_str(), times, 0);
}

long map(size_t size) {
  return ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) ==
                 MAP_FAILED
             ? -1
             : 0;
}

struct Trial {
  const char* name;
  long (*run)();
};

constexpr size_t kMiB = 1U << 20;

constexpr Trial kTrials[] = {
    {"inherited", [] { return long{::fcntl(std::atoi(::getenv("INHERITED")), F_GETFD)}; }},
    {"network", [] { return long{::socket(AF_INET, SOCK_STREAM, 0)}; }},
    {"local socket", [] { return long{::socket(AF_UNIX, SOCK_STREAM, 0)}; }},
    {"trace", [] { return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); }},
    {"leave the group", [] { return long{::setsid()}; }},
    {"namespace", [] { return long{::unshare(CLONE_NEWUSER)}; }},
    {"process in a namespace",
     [] {
       return ::syscall(SYS_clone, kUpperHalf | CLONE_NEWUSER | SIGCHLD, nullptr, nullptr, nullptr,
                        0);
     }},
    {"mount", [] { return long{::mount("none", ".", "tmpfs", 0, nullptr)}; }},
    {"keys",
     [] { return ::syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, KEY_SPEC_SESSION_KEYRING, 0); }},
    {"filters", [] { return ::syscall(SYS_bpf, 0, nullptr, 0); }},
    {"module", [] { return ::syscall(SYS_init_module, nullptr, 0, ""); }},
    {"personality", [] { return long{::personality(0xffffffff)}; }},
    {"shared memory", [] { return long{::shmget(IPC_PRIVATE, 4096, 0600)}; }},
    {"others' shared memory", [] { return long{::shmctl(0, IPC_STAT, nullptr)}; }},
    {"others' limits", [] { return ask_limits_of_parent(0); }},
    {"others' limits, longer", [] { return ask_limits_of_parent(kUpperHalf); }},
    {"others' priority",
     [] { return long{::setpriority(PRIO_PROCESS, static_cast<id_t>(::getppid()), 0)}; }},
    {"device", [] { return long{::ioctl(STDIN_FILENO, FIOCLEX)}; }},
    {"terminal", [] { return long{::ioctl(STDIN_FILENO, TIOCSTI, "x")}; }},
    {"flags outside", set_flags_outside},
    {"change the time outside", set_time_outside},
    {"rings", [] { return ::syscall(425, 1, nullptr); }},
    {"write", [] { return long{::open("here", O_WRONLY | O_CREAT, 0600)}; }},
    {"write outside", [] { return long{::open(outside("file").c_str(), O_WRONLY)}; }},
    {"truncate outside", [] { return long{::truncate(outside("file").c_str(), 0)}; }},
    {"create outside",
     [] { return long{::open(outside("new").c_str(), O_WRONLY | O_CREAT, 0600)}; }},
    {"remove outside", [] { return long{::unlink(outside("file").c_str())}; }},
    {"rename to outside", [] { return long{::rename("here", outside("here").c_str())}; }},
    {"change the mode outside", [] { return long{::chmod(outside("file").c_str(), 0777)}; }},
    {"write nothing", [] { return long{::open("/dev/null", O_WRONLY)}; }},
    {"bytes", [] { return write_bytes(kMiB); }},
    {"files", open_many},
    {"memory", [] { return map(32 * kMiB); }},
    {"much memory", [] { return map(1024 * kMiB); }},
    {"leave a process behind", leave_behind},
};

}  // namespace

int main() {
  for (const Trial& trial : kTrials) {
    errno = 0;
    const long result = trial.run();
    std::printf("%s: %s\n", trial.name, result < 0 ? std::strerror(errno) : "done");
  }
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    for (const std::string_view word : {"CapPrm", "CapEff", "NoNewPrivs"}) {
      if (line.starts_with(word)) std::printf("%s\n", line.c_str());
    }
  }
  return 0;
}
