#include "log_watch.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "clock.h"
#include "log_reader.h"
#include "tarvio/log_monitor.h"
#include "warn.h"

namespace tarviod {

namespace {

constexpr int kBeginDeadlineMs = 5000;
constexpr int64_t kMsPerSecond = 1000;
constexpr char kOwnProgram[] = "/proc/self/exe";

class Pipe {
 public:
  Pipe() {
    if (pipe2(ends_.data(), O_CLOEXEC) != 0) ends_ = {-1, -1};
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    for (const int end : ends_) {
      if (end >= 0) (void)close(end);
    }
  }

  [[nodiscard]] bool is_open() const { return ends_[0] >= 0; }
  [[nodiscard]] int read_end() const { return ends_[0]; }
  [[nodiscard]] int write_end() const { return ends_[1]; }
  int release_read_end() { return std::exchange(ends_[0], -1); }

 private:
  std::array<int, 2> ends_;
};

// The arguments of a log reader; the strings are borrowed.
class Arguments {
 public:
  Arguments(int log_level, const Config& config) {
    size_t count = kFixed + 1;
    config.each_hook([&](const char*, const char*) { count += 2; });
    words_ = static_cast<const char**>(malloc(count * sizeof(char*)));
    if (words_ == nullptr) return;
    (void)snprintf(level_, sizeof level_, "%d", log_level);
    (void)snprintf(period_, sizeof period_, "%d", config.log_period_s());
    add(kLogReaderName);
    add(level_);
    add(config.log_file());
    add(period_);
    config.each_hook([&](const char* text, const char* application) {
      add(text);
      add(application);
    });
    words_[count_] = nullptr;
  }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;
  ~Arguments() { free(words_); }

  [[nodiscard]] char* const* get() const { return const_cast<char* const*>(words_); }

 private:
  static constexpr size_t kFixed = 4;

  void add(const char* word) { words_[count_++] = word; }

  char level_[12];
  char period_[12];
  size_t count_ = 0;
  const char** words_ = nullptr;
};

// 0 or the error.
int spawn(char* const* arguments, int position_fd, int report_fd) {
  if (arguments == nullptr) return ENOMEM;
  posix_spawn_file_actions_t actions;
  int error = posix_spawn_file_actions_init(&actions);
  if (error != 0) return error;
  // What a read prints is of no use to anybody.
  error = posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  if (error == 0) error = posix_spawn_file_actions_adddup2(&actions, position_fd, kPositionFd);
  if (error == 0) error = posix_spawn_file_actions_adddup2(&actions, report_fd, kReportFd);
  // The com server's thread may hold any lock: a program of its own needs none of them.
  pid_t pid = -1;
  if (error == 0) error = posix_spawn(&pid, kOwnProgram, &actions, nullptr, arguments, environ);
  (void)posix_spawn_file_actions_destroy(&actions);
  return error;
}

bool has_hooks(const Config& config) {
  bool has = false;
  config.each_hook([&](const char*, const char*) { has = true; });
  return has;
}

}  // namespace

void LogMonitor::start(Config config) {
  stop();
  if (strcmp(config.log_file(), config_.log_file()) != 0) position_ = {};
  config_ = std::move(config);
  if (config_.log_period_s() > 0 && has_hooks(config_)) {
    start_reader();
  } else {
    position_ = {};
  }
}

void LogMonitor::start_reader() {
  due_ms_ = now_ms() + config_.log_period_s() * kMsPerSecond;
  const Pipe position;
  Pipe report;
  int error = errno;
  if (position.is_open() && report.is_open()) {
    // The pipe takes it whole: it is smaller than what every pipe does.
    (void)!write(position.write_end(), &position_, sizeof position_);
    const Arguments arguments(log_level_, config_);
    error = spawn(arguments.get(), position.read_end(), report.write_end());
  }
  if (error != 0) return warn("cannot start the log reader", strerror(error));
  report_fd_ = report.release_read_end();
  reader_is_done_ = false;
  due_ms_ = -1;
}

void LogMonitor::wait_for_begin() {
  if (report_fd_ < 0) return;
  pollfd report = {.fd = report_fd_, .events = POLLIN, .revents = 0};
  if (poll(&report, 1, kBeginDeadlineMs) > 0) return take_report();
  warn(config_.log_file(), "takes long to read: lines of now may count as old ones");
}

void LogMonitor::stop() {
  if (report_fd_ >= 0) (void)close(report_fd_);
  report_fd_ = -1;
  due_ms_ = -1;
}

void LogMonitor::take_report() {
  LogReport report;
  ssize_t count = -1;
  do {
    count = read(report_fd_, &report, sizeof report);
  } while (count < 0 && errno == EINTR);
  if (count != sizeof report) return reader_is_gone();
  position_ = report.position;
  if (report.kind == ReportKind::kDone) reader_is_done_ = true;
  if (report.kind == ReportKind::kChange) {
    (void)tq_change_status_by_log(report.application, report.level, report.detail);
  }
}

void LogMonitor::reader_is_gone() {
  stop();
  if (reader_is_done_) return start_reader();
  warn("the log reader died", "starting another one");
  due_ms_ = now_ms() + config_.log_period_s() * kMsPerSecond;
}

}  // namespace tarviod
