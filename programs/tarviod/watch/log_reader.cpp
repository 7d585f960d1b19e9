#include "log_reader.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/deadline.h"
#include "base/pipe.h"
#include "journal.h"
#include "log_file.h"
#include "log_reporter.h"
#include "settings/command_line.h"
#include "tarvio/log_monitor.h"

namespace tarviod {

namespace {

enum Argument { kLog = 1, kFormat, kPeriod, kFirstHook };

bool receive_position(LogPosition& position) {
  return tarvio::read_some(kPositionFd, {reinterpret_cast<char*>(&position), sizeof position}) ==
         sizeof position;
}

// The manager ends the reader, by closing the pipe: signals to the whole group are not for it.
void leave_signals_to_manager() {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) (void)signal(number, SIG_IGN);
}

// False when memory ran out. The manager starts another reader then.
bool set_hooks(char** hooks) {
  (void)tq_setup_log_manager();
  for (char** hook = hooks; *hook != nullptr; hook += kWordsOfHook) {
    if (tq_set_log_hook(*hook) != 0) return false;
  }
  return true;
}

bool manager_is_gone_after(int wait_ms) {
  return tarvio::wait_for(kReportFd, 0, tarvio::Deadline::after(wait_ms));
}

void watch_file(const char* path, runtime::LogFormat format, LogReporter& reporter, int period_ms) {
  LogFile log(path, format, reporter);
  log.look();
  reporter.send(ReportKind::kPosition);  // even without news: the manager waits for it
  while (!manager_is_gone_after(period_ms)) log.look();
}

}  // namespace

int run_log_reader(int argc, char** argv) {
  LogPosition begin = {};
  if (argc < kFirstHook || !receive_position(begin)) return kExitUsage;
  leave_signals_to_manager();
  if (!set_hooks(argv + kFirstHook)) return EXIT_FAILURE;
  LogReporter reporter(begin, argv + kFirstHook);
  const int period_ms = atoi(argv[kPeriod]) * 1000;
  if (strcmp(argv[kLog], runtime::kJournal) == 0) {
    follow_journal(reporter, period_ms);
  } else {
    const auto format =
        static_cast<runtime::LogFormat>(runtime::index_of(argv[kFormat], runtime::kLogFormats));
    watch_file(argv[kLog], format, reporter, period_ms);
  }
  return 0;
}

}  // namespace tarviod
