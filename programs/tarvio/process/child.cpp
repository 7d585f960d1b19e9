#include "process/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <exception>

#include "base/owners.h"
#include "process/failure.h"
#include "terminal/output.h"

namespace client {

namespace {

struct ChildEnd {
  int status = 0;  // its exit status; 128 and the number of the signal that ended it
  bool is_late = false;
  std::string errors;  // what it wrote on standard error, at least the beginning
};

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr size_t kMostErrors = 65536;
constexpr int kCannotRun = 127;
constexpr int kSignalled = 128;
constexpr Milliseconds kGrace{2000};  // from the request to end to the order
constexpr int kMostPieces = 8;  // more than a pipe holds, so that nothing of a dead child stays

struct Pipe {
  tarvio::Fd read_end;
  tarvio::Fd write_end;

  Pipe() {
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw Failure::of_system("cannot make a pipe");
    read_end.reset(ends[0]);
    write_end.reset(ends[1]);
    (void)fcntl(read_end.get(), F_SETFL, O_NONBLOCK);
  }
};

// When a number of seconds is over; never when there are none.
class Deadline {
 public:
  explicit Deadline(double seconds)
      : is_set_(seconds > 0),
        end_(Clock::now() +
             std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))) {}
  [[nodiscard]] bool is_over() const { return is_set_ && Clock::now() >= end_; }
  // For poll.
  [[nodiscard]] int rest() const {
    if (!is_set_) return -1;
    const auto left = std::chrono::ceil<Milliseconds>(end_ - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
  }

 private:
  bool is_set_;
  Clock::time_point end_;
};

// Of two times for poll, where a negative one is for ever.
int sooner(int one, int other) {
  if (one < 0 || other < 0) return std::max(one, other);
  return std::min(one, other);
}

// A running child.
class Child {
 public:
  // The body writes to the descriptor that it is given, and does not return.
  Child(const WorkDirectory& directory, const std::function<void(int)>& body)
      : signals_(directory.signals()), pid_(fork()) {
    if (pid_ < 0) throw Failure::of_system("cannot make a process");
    if (pid_ == 0) become_child(directory, body);
    (void)setpgid(pid_, pid_);  // whoever of the two comes first
    output_.write_end.reset();
    errors_.write_end.reset();
  }
  ~Child() {
    if (!is_gone_) end_group();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  ChildEnd wait(double seconds, const Sink& sink, const Watch& watch = {}) {
    const Deadline deadline(seconds);
    ChildEnd end;
    while (!is_reaped()) {
      if (deadline.is_over()) {
        end.is_late = true;
        end_group();
        break;
      }
      wait_for_event(sooner(deadline.rest(), watch.tick_ms));
      read_all(sink, watch.trace, end.errors);
      if (watch.tick) watch.tick();
    }
    read_all(sink, watch.trace, end.errors);
    end.status = status_;
    return end;
  }

 private:
  [[noreturn]] void become_child(const WorkDirectory& directory,
                                 const std::function<void(int)>& body) {
    (void)setpgid(0, 0);
    signals_.release_in_child();
    // A user's own defaults for the tools would change what they do.
    for (const char* variable : {"TAR_OPTIONS", "GZIP"}) (void)unsetenv(variable);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (dup2(nothing, STDIN_FILENO) < 0 || dup2(errors_.write_end.get(), STDERR_FILENO) < 0 ||
        dup2(STDERR_FILENO, STDOUT_FILENO) < 0 || setenv("LC_ALL", "C", 1) != 0 ||
        chdir(directory.path().c_str()) != 0) {
      give_up(std::string("cannot set a process up: ") + strerror(errno));
    }
    try {
      body(output_.write_end.get());
      _exit(EXIT_SUCCESS);
    } catch (const std::exception& error) {
      give_up(error.what());
    }
  }

  [[noreturn]] static void give_up(const std::string& why) {
    (void)write_all(STDERR_FILENO, why + '\n');
    _exit(kCannotRun);
  }

  bool is_reaped() {
    if (is_gone_) return true;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) return false;
    is_gone_ = true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
    return true;
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
    while (read(signals_.child(), notes.data(), notes.size()) > 0) {
    }
  }

  void read_all(const Sink& sink, const Sink& trace, std::string& errors) {
    read_pipe(output_, sink);
    read_pipe(errors_, [&](std::string_view piece) {
      if (trace) return trace(piece);
      errors += piece.substr(0, kMostErrors - std::min(kMostErrors, errors.size()));
    });
  }

  static void read_pipe(Pipe& pipe, const Sink& sink) {
    std::array<char, 16384> piece;
    for (int pieces = 0; pieces < kMostPieces && pipe.read_end.valid(); ++pieces) {
      const ssize_t count = read(pipe.read_end.get(), piece.data(), piece.size());
      if (count > 0) {
        sink({piece.data(), static_cast<size_t>(count)});
      } else if (count == 0) {
        pipe.read_end.reset();
      } else if (errno != EINTR) {
        return;
      }
    }
  }

  void end_group() {
    (void)kill(-pid_, SIGTERM);
    const auto order = Clock::now() + kGrace;
    pollfd child = {signals_.child(), POLLIN, 0};
    while (!is_reaped() && Clock::now() < order) {
      (void)poll(&child, 1, 50);
      forget_ended_children();
    }
    (void)kill(-pid_, SIGKILL);  // its children as well, which may have survived it
    while (!is_gone_) {
      if (!is_reaped()) (void)poll(&child, 1, 50);
    }
  }

  const SignalHold& signals_;
  Pipe output_;
  Pipe errors_;
  pid_t pid_;
  bool is_gone_ = false;
  int status_ = 0;
};

[[noreturn]] void fail_late(const std::string& what) {
  throw Failure(ETIMEDOUT,
                what + " was not done in time and was ended: --timeout SECONDS waits longer",
                kTimeout);
}

// gzip begins its complaints with an empty line.
std::string first_line(std::string text) {
  text.erase(0, text.find_first_not_of('\n'));
  return text.substr(0, text.find('\n'));
}

std::string last_line(std::string text) {
  text.erase(text.find_last_not_of('\n') + 1);
  return text.substr(text.rfind('\n') + 1);
}

[[noreturn]] void fail_with(const std::string& what, int status, const std::string& words) {
  throw Failure(EIO, what + " failed with status " + std::to_string(status) +
                         (words.empty() ? "" : ": " + words));
}

// What a job writes: the code of its failure or 0, a line feed, and the message or the result.
std::string told_by(const std::function<std::string()>& job) {
  try {
    return "0\n" + job();
  } catch (const Failure& failure) {
    return std::to_string(failure.code()) + '\n' + failure.what();
  }
}

}  // namespace

void run_tool(const WorkDirectory& directory, const std::vector<std::string>& words, double seconds,
              const Sink& sink) {
  Child child(directory, [&words](int output) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    (void)dup2(output, STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    throw Failure::of_system("cannot run it");
  });
  const ChildEnd end = child.wait(seconds, sink);
  if (end.is_late) fail_late(words[0]);
  // A tool tells the cause first, and at last that it gives up.
  if (end.status != 0) fail_with(words[0], end.status, first_line(end.errors));
}

JobEnd run_job(const WorkDirectory& directory, const char* tools,
               const std::function<std::string()>& job, double seconds, const Watch& watch) {
  Child child(directory, [&job](int output) {
    if (!write_all(output, told_by(job))) throw Failure::of_system("cannot tell the result");
  });
  std::string told;
  ChildEnd end = child.wait(
      seconds, [&told](std::string_view piece) { told += piece; }, watch);
  if (end.is_late) fail_late(tools);
  const size_t line_end = told.find('\n');
  // Tools may have complained before the job itself failed.
  if (end.status != 0 || line_end == std::string::npos) {
    fail_with(tools, end.status, last_line(end.errors));
  }
  std::string rest = told.substr(line_end + 1);
  const int code = static_cast<int>(strtol(told.c_str(), nullptr, 10));
  if (code != 0) throw Failure(code, rest);
  return {std::move(rest), std::move(end.errors)};
}

}  // namespace client
