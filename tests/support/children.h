// Child processes of a test: what they print, how they end, and what they share with it.
#ifndef TARVIO_TESTS_SUPPORT_CHILDREN_H
#define TARVIO_TESTS_SUPPORT_CHILDREN_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

namespace tarvio_test {

// Far longer than anything takes that a test waits for.
constexpr std::chrono::milliseconds kPatience{20000};

// Whether the condition comes true in good time.
template <typename Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// All that comes out of a pipe, which is closed then. An end that never comes fails the test.
inline std::string read_to_end(int fd) {
  std::string text;
  pollfd ready = {fd, POLLIN, 0};
  ssize_t count = 0;
  do {
    char bytes[4096];
    const int events = ::poll(&ready, 1, static_cast<int>(kPatience.count()));
    if (events != 1) ADD_FAILURE() << "no end of data came, only: " << text;
    count = events == 1 ? ::read(fd, bytes, sizeof bytes) : 0;
    if (count > 0) text.append(bytes, static_cast<size_t>(count));
  } while (count > 0);
  ::close(fd);
  return text;
}

// Waits for a child; its status as waitpid reports it.
inline int end_of(pid_t child) {
  int status = -1;
  if (::waitpid(child, &status, 0) != child) ADD_FAILURE() << "process " << child << " is no child";
  return status;
}

// Waits for a child; its exit status, or -1 when a signal ended it.
inline int exit_status_of(pid_t child) {
  const int status = end_of(child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// In a new process: the permissions of files count from now on although it is root's.
inline void give_up_file_permissions() {
  constexpr uint32_t kOverrides = 1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH;
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
  (void)::syscall(SYS_capget, &header, sets);
  for (uint32_t* const set : {&sets[0].effective, &sets[0].permitted}) *set &= ~kOverrides;
  (void)::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
  (void)::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
  (void)::syscall(SYS_capset, &header, sets);
}

// A standard stream of this process is a file while this lives.
class Redirect {
 public:
  Redirect(int stream, const std::filesystem::path& file)
      : stream_(stream), before_(::fcntl(stream, F_DUPFD_CLOEXEC, 10)) {
    const int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (before_ < 0 || fd < 0 || ::dup2(fd, stream) < 0)
      ADD_FAILURE() << "cannot redirect to " << file;
    ::close(fd);
  }
  ~Redirect() {
    ::dup2(before_, stream_);
    ::close(before_);
  }
  Redirect(const Redirect&) = delete;
  Redirect& operator=(const Redirect&) = delete;

 private:
  int stream_;
  int before_;
};

}  // namespace tarvio_test

#endif
