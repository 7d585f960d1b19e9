// A program that runs beside a test, with its output and errors in files.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_BACKGROUND_PROGRAM_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_BACKGROUND_PROGRAM_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/children.h"
#include "support/files.h"

namespace tarvio_test {

class BackgroundProgram {
 public:
  // words    the program, looked for in PATH where it is no path, and its arguments.
  // prepare  runs in the new process before the program does. There standard input is /dev/null,
  // the
  //          two other streams go to files, and no other descriptor is open.
  explicit BackgroundProgram(
      std::vector<std::string> words, const std::function<void()>& prepare = [] {})
      : words_(std::move(words)) {
    write_file(directory_ / "output", "");
    write_file(directory_ / "errors", "");
    pid_ = ::fork();
    if (pid_ == 0) run(prepare);
  }
  // Ends it where the test has not.
  ~BackgroundProgram() { kill(); }
  BackgroundProgram(const BackgroundProgram&) = delete;
  BackgroundProgram& operator=(const BackgroundProgram&) = delete;

  pid_t pid() const { return pid_; }
  // What it has written so far.
  std::string output() const { return read_file(directory_ / "output"); }
  std::string errors() const { return read_file(directory_ / "errors"); }

  // Waits until it has written that on standard error.
  testing::AssertionResult says(const std::string& text) {
    const bool said =
        eventually([&] { return errors().find(text) != std::string::npos || has_ended(); });
    if (said && errors().find(text) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << (ended_ ? "ended" : "silent") << ", errors: " << errors();
  }

  void send(int signal) const {
    if (::kill(pid_, signal) != 0) ADD_FAILURE() << "kill: " << std::strerror(errno);
  }
  void kill() {
    if (has_ended()) return;
    ::kill(pid_, SIGKILL);
    ended_ = ::waitpid(pid_, &status_, 0) == pid_;
  }
  bool has_ended() {
    if (!ended_) ended_ = ::waitpid(pid_, &status_, WNOHANG) == pid_;
    return ended_;
  }
  // Waits for its end. Its exit status, or -1 when a signal ended it.
  int end() {
    if (!eventually([this] { return has_ended(); })) {
      ADD_FAILURE() << "does not end, output: " << output() << ", errors: " << errors();
      return -1;
    }
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : -1;
  }

 private:
  static void become_stream(const std::string& file, int flags, int stream) {
    ::dup2(::open(file.c_str(), flags | O_CLOEXEC, 0644), stream);
  }

  [[noreturn]] void run(const std::function<void()>& prepare) const {
    constexpr int kToFile = O_WRONLY | O_CREAT | O_APPEND;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    become_stream("/dev/null", O_RDONLY, STDIN_FILENO);
    become_stream(directory_ / "output", kToFile, STDOUT_FILENO);
    become_stream(directory_ / "errors", kToFile, STDERR_FILENO);
    prepare();
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    std::vector<char*> argv;
    for (const std::string& word : words_) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    // Its messages begin with its name, as they do where a shell has found it in PATH.
    argv.front() += words_.front().rfind('/') + 1;
    ::execvp(words_.front().c_str(), argv.data());
    ::_exit(126);
  }

  const std::vector<std::string> words_;
  const TempDir directory_;
  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = 0;
};

}  // namespace tarvio_test

#endif
