// What the log reader finds out, sent to the manager.
#ifndef TARVIOD_LOG_REPORTER_H
#define TARVIOD_LOG_REPORTER_H

#include "log_report.h"
#include "runtime/log_form.h"

namespace tarviod {

// A hook as the reader has it among its arguments: text, application, and the level of lines that
// have none.
inline constexpr int kWordsOfHook = 3;

class LogReporter {
 public:
  // hooks  null at the end, and set in the library.
  LogReporter(const LogPosition& begin, char** hooks);

  // Up to where the log is read; goes with every report.
  LogPosition& position() { return report_.position; }

  // Reports the change that a line makes. What was in the log when the manager started makes none.
  void count(const runtime::UsualLine& line);

  // Reports once, until nothing is wrong any more, which is null.
  void complain_about_log(const char* why);

  // Reports once that the log has been without a line that can count.
  void complain_about_form();

  void send(ReportKind kind);

 private:
  void complain(const char* why);

  char** hooks_;
  runtime::FormJudge form_;
  bool is_log_bad_ = false;
  bool is_form_reported_ = false;
  LogReport report_ = {};
};

}  // namespace tarviod

#endif
