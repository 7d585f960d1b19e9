#include "log_watch.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <string_view>
#include <utility>

#include "base/pipe.h"
#include "log_reader.h"
#include "log_reporter.h"
#include "settings/warn.h"
#include "tarvio/log_monitor.h"

namespace tarviod {

namespace {

using tarvio::Deadline;
using tarvio::Pipe;

constexpr int kBeginDeadlineMs = 5000;
constexpr int kMsPerSecond = 1000;
constexpr char kOwnProgram[] = "/proc/self/exe";

// The arguments of a log reader; the strings are borrowed. Null when memory runs out.
using Words = std::unique_ptr<const char*[], tarvio::Free>;
Words arguments_of_reader(const runtime::Config& config, const char* period) {
  constexpr size_t kFixed = 4;
  const size_t count = kFixed + kWordsOfHook * config.hook_count() + 1;
  Words words(static_cast<const char**>(malloc(count * sizeof(char*))));
  if (words == nullptr) return words;
  const char** end = words.get();
  for (const char* word : {kLogReaderName, config.log(), config.log_format(), period})
    *end++ = word;
  config.each_hook([&](const char* text, const char* application, const char* /*line*/) {
    *end++ = text;
    *end++ = application;
    *end++ = config.level_of(text);
  });
  *end = nullptr;
  return words;
}

// 0 or the error. The com server's thread may hold any lock while this thread forks, so the reader
// is a program of its own, which needs none of them.
int spawn_reader(const char* const* arguments, int position_fd, int report_fd) {
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) return ENOMEM;
  // The reader must not hold the terminal that the manager lets go of.
  const bool added =
      posix_spawn_file_actions_adddup2(&actions, position_fd, kPositionFd) == 0 &&
      posix_spawn_file_actions_adddup2(&actions, report_fd, kReportFd) == 0 &&
      posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0) == 0;
  pid_t pid = -1;
  const int error = added ? posix_spawn(&pid, kOwnProgram, &actions, nullptr,
                                        const_cast<char* const*>(arguments), environ)
                          : ENOMEM;
  (void)posix_spawn_file_actions_destroy(&actions);
  return error;
}

int start_process(const runtime::Config& config, const LogPosition& position, int report_fd) {
  char period[12];
  (void)snprintf(period, sizeof period, "%d", config.log_period_s());
  const Words arguments = arguments_of_reader(config, period);
  if (arguments == nullptr) return ENOMEM;
  // Every pipe takes a position without a reader, since it is smaller than PIPE_BUF.
  const Pipe begin;
  const std::string_view bytes(reinterpret_cast<const char*>(&position), sizeof position);
  if (!begin.valid() || !tarvio::write_all(begin.write_end.get(), bytes)) return errno;
  return spawn_reader(arguments.get(), begin.read_end.get(), report_fd);
}

}  // namespace

void LogWatch::start(runtime::Config config) {
  stop();
  if (strcmp(config.log(), config_.log()) != 0) position_ = {};
  config_ = std::move(config);
  if (config_.log_period_s() > 0 && config_.hook_count() > 0) {
    start_reader();
  } else {
    position_ = {};
  }
}

void LogWatch::start_reader() {
  Pipe report;
  const int error =
      report.valid() ? start_process(config_, position_, report.write_end.get()) : errno;
  if (error != 0) {
    warn("cannot start the log reader", strerror(error));
    return retry_after_period();
  }
  report_ = std::move(report.read_end);
  reader_due_ = Deadline::never();
}

void LogWatch::retry_after_period() {
  reader_due_ = Deadline::after(config_.log_period_s() * kMsPerSecond);
}

void LogWatch::wait_for_begin() {
  if (!report_.valid()) return;
  if (tarvio::wait_for(report_.get(), POLLIN, Deadline::after(kBeginDeadlineMs))) {
    return handle_report();
  }
  warn(config_.log(), "is slow to read; recent lines may be skipped");
}

void LogWatch::stop() {
  report_.reset();
  reader_due_ = Deadline::never();
}

void LogWatch::handle_report() {
  LogReport report;
  const ssize_t count =
      tarvio::read_some(report_.get(), {reinterpret_cast<char*>(&report), sizeof report});
  if (count != sizeof report) {
    stop();
    warn("the log reader died", "starting another one");
    return retry_after_period();
  }
  position_ = report.position;
  if (report.kind == ReportKind::kComplaint) warn(config_.log(), report.detail);
  if (report.kind == ReportKind::kChange) {
    (void)tq_change_status_by_log(report.application, report.level, report.detail);
  }
}

}  // namespace tarviod
