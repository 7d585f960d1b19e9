#include "process/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>

#include "base/deadline.h"
#include "base/pipe.h"
#include "process/failure.h"
#include "process/last_words.h"

namespace client {

namespace {

using tarvio::Deadline;
using tarvio::Pipe;
using Work = std::function<void(int output)>;

constexpr size_t kMaxErrors = 65536;
constexpr int kCannotRun = 127;
constexpr int kSignalled = 128;
constexpr int kGraceMs = 2000;  // from SIGTERM to SIGKILL
constexpr int kMaxPieces = 8;   // more than a pipe holds, so that nothing of a dead child stays

// The pipe's end that this process reads never blocks it.
Pipe open_pipe() {
  Pipe pipe;
  if (!pipe.valid()) throw Failure::of_system("cannot create a pipe");
  (void)fcntl(pipe.read_end.get(), F_SETFL, O_NONBLOCK);
  return pipe;
}

// Of two times for poll, where a negative one is forever.
int sooner(int one, int other) {
  if (one < 0 || other < 0) return std::max(one, other);
  return std::min(one, other);
}

// A running child.
class Child {
 public:
  // The work writes to the descriptor that it is given.
  Child(const WorkDirectory& directory, const Rights& rights, const Work& work)
      : signals_(directory.signals()), is_limited_(rights.are_limited), pid_(fork()) {
    if (pid_ < 0) throw Failure::of_system("cannot start a process");
    if (pid_ == 0) become_child(directory, rights, work);
    (void)setpgid(pid_, pid_);  // whoever of the two comes first
    output_.write_end.reset();
    errors_.write_end.reset();
  }
  ~Child() {
    if (!is_gone_) end_group();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  ChildEnd wait(double seconds, const Sink& sink, const Tick& tick = {{}, -1}) {
    const Deadline deadline = Deadline::after_seconds(seconds);
    ChildEnd end;
    while (true) {
      if (tick.call) tick.call();
      if (reap() < 0) throw Failure::of_system("cannot wait for a process");
      if (is_gone_) break;
      if (deadline.passed()) {
        end.is_late = true;
        end_group();
        break;
      }
      wait_for_event(sooner(deadline.remaining_ms(), tick.every_ms));
      read_all(sink, end.errors);
    }
    read_all(sink, end.errors);
    end.status = status_;
    return end;
  }

 private:
  // What is thrown here must not reach the parent's code.
  [[noreturn]] void become_child(const WorkDirectory& directory, const Rights& rights,
                                 const Work& work) noexcept {
    (void)setpgid(0, 0);
    signals_.release_in_child();
    // A user's own defaults for the tools would change what they do.
    for (const char* variable : {"TAR_OPTIONS", "GZIP"}) (void)unsetenv(variable);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing < 0 || dup2(nothing, STDIN_FILENO) < 0 ||
        dup2(errors_.write_end.get(), STDERR_FILENO) < 0 ||
        dup2(STDERR_FILENO, STDOUT_FILENO) < 0 || setenv("LC_ALL", "C", 1) != 0 ||
        chdir(directory.path().c_str()) != 0) {
      give_up({"cannot set up a process: ", strerror(errno)});
    }
    try {
      limit_to(rights, {output_.write_end.get(), errors_.write_end.get()});
      work(output_.write_end.get());
      _exit(EXIT_SUCCESS);
    } catch (const std::exception& error) {
      give_up({cause_of(error)});
    }
  }

  [[noreturn]] void give_up(std::initializer_list<std::string_view> why) const noexcept {
    write_line(errors_.write_end.get(), why);
    _exit(kCannotRun);
  }

  // The result of waitpid: 0 while the child runs, negative when its end will never be known.
  pid_t reap() {
    if (is_limited_) kill_what_is_left();
    int status = 0;
    const pid_t pid = waitpid(pid_, &status, WNOHANG);
    if (pid == pid_) {
      is_gone_ = true;
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
    }
    return pid;
  }

  // Until the child is waited for, its number names no other group. Nothing leaves the group of one
  // with limited rights; others, such as a package's scripts, may start daemons.
  void kill_what_is_left() const {
    siginfo_t end = {};
    const int waited = waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT);
    if (waited == 0 && end.si_pid == pid_) (void)kill(-pid_, SIGKILL);
  }

  // A child's pipe may outlive it, in the hands of a daemon that it has started.
  void wait_for_event(int milliseconds) const {
    std::array<pollfd, 4> events = {{{signals_.ending(), POLLIN, 0},
                                     {signals_.child(), POLLIN, 0},
                                     {output_.read_end.get(), POLLIN, 0},
                                     {errors_.read_end.get(), POLLIN, 0}}};
    (void)poll(events.data(), events.size(), milliseconds);
    if (events[0].revents != 0) throw Interrupted{};
    if (events[1].revents != 0) forget_ended_children();
  }

  void forget_ended_children() const {
    std::array<char, 1024> notes;
    while (tarvio::read_some(signals_.child(), notes) > 0) {
    }
  }

  void read_all(const Sink& sink, std::string& errors) {
    read_pipe(output_, sink);
    read_pipe(errors_, [&](std::string_view piece) {
      errors += piece.substr(0, kMaxErrors - std::min(kMaxErrors, errors.size()));
    });
  }

  static void read_pipe(Pipe& pipe, const Sink& sink) {
    std::array<char, 16384> piece;
    for (int pieces = 0; pieces < kMaxPieces && pipe.read_end.valid(); ++pieces) {
      const ssize_t count = tarvio::read_some(pipe.read_end.get(), piece);
      if (count < 0 && errno == EAGAIN) return;
      if (count < 0) throw Failure::of_system("cannot read what a process writes");
      if (count == 0) return pipe.read_end.reset();
      sink({piece.data(), static_cast<size_t>(count)});
    }
  }

  void end_group() {
    (void)kill(-pid_, SIGTERM);
    const Deadline grace = Deadline::after(kGraceMs);
    pollfd child = {signals_.child(), POLLIN, 0};
    while (reap() == 0 && !grace.passed()) {
      (void)poll(&child, 1, 50);
      forget_ended_children();
    }
    (void)kill(-pid_, SIGKILL);  // its children as well, which may have survived it
    while (!is_gone_ && reap() == 0) (void)poll(&child, 1, 50);
  }

  const SignalHold& signals_;
  Pipe output_ = open_pipe();
  Pipe errors_ = open_pipe();
  bool is_limited_;
  pid_t pid_;
  bool is_gone_ = false;
  int status_ = 0;
};

// gzip begins its complaints with an empty line.
std::string first_line(std::string text) {
  text.erase(0, text.find_first_not_of('\n'));
  return text.substr(0, text.find('\n'));
}

std::string last_line(std::string text) {
  text.erase(text.find_last_not_of('\n') + 1);
  return text.substr(text.rfind('\n') + 1);
}

void check(const WorkDirectory& directory, const std::string& what, const ChildEnd& end,
           std::string (*line_of)(std::string errors)) {
  if (end.is_late) {
    throw Failure(ETIMEDOUT,
                  what + " timed out and was stopped (use --timeout SECONDS to wait longer)",
                  kTimeout);
  }
  if (end.status == 0) return;
  const std::string words = line_of(end.errors);
  const std::string cause = what + " failed with status " + std::to_string(end.status) +
                            (words.empty() ? "" : ": " + words);
  directory.check_space_left(cause);
  throw Failure(EIO, cause);
}

[[noreturn]] void become_program(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  throw Failure::of_system("cannot run it");
}

// What a job writes: the code of its failure or 0, a line feed, and the message or the result.
std::string report_of(const std::function<std::string()>& job) {
  try {
    return "0\n" + job();
  } catch (const Failure& failure) {
    return std::to_string(failure.code()) + '\n' + failure.what();
  }
}

}  // namespace

void execute(const WorkDirectory& directory, const Rights& rights,
             const std::vector<std::string>& words, double seconds, const Sink& sink) {
  Child child(directory, rights, [&words](int output) {
    if (dup2(output, STDOUT_FILENO) < 0) throw Failure::of_system("cannot run it");
    become_program(words);
  });
  // A tool names the cause first, and at last says that it gives up.
  check(directory, words[0], child.wait(seconds, sink), first_line);
}

ChildEnd run_tool(const WorkDirectory& directory, const Rights& rights,
                  const std::vector<std::string>& words, double seconds) {
  Child child(directory, rights, [&words](int /*output*/) { become_program(words); });
  return child.wait(seconds, [](std::string_view /*piece*/) {});
}

std::string run_apart(const WorkDirectory& directory, const Rights& rights, const char* tools,
                      const Work& work, double seconds, const Sink& sink, const Tick& tick) {
  Child child(directory, rights, work);
  ChildEnd end = child.wait(seconds, sink, tick);
  check(directory, tools, end,
        last_line);  // tools may have complained before the work itself failed
  return std::move(end.errors);
}

JobEnd run_job(const WorkDirectory& directory, const Rights& rights, const char* tools,
               const std::function<std::string()>& job, double seconds, const Tick& tick) {
  std::string report;
  std::string errors = run_apart(
      directory, rights, tools,
      [&job](int output) {
        if (!tarvio::write_all(output, report_of(job))) {
          throw Failure::of_system("cannot report the result");
        }
      },
      seconds, [&report](std::string_view piece) { report += piece; }, tick);
  const size_t code_end = report.find('\n');
  if (code_end == std::string::npos) {
    throw Failure(EIO, std::string(tools) + " ended without a result");
  }
  std::string result = report.substr(code_end + 1);
  const int code = static_cast<int>(strtol(report.c_str(), nullptr, 10));
  if (code != 0) {
    directory.check_space_left(result);
    throw Failure(code, result);
  }
  return {std::move(result), std::move(errors)};
}

}  // namespace client
