// Lines of the system log in the forms that log daemons write. The parser takes one of them, so the
// others are written in it.
#ifndef TARVIOD_LOG_FORM_H
#define TARVIOD_LOG_FORM_H

#include <string_view>

#include "settings/log_format.h"

namespace tarviod {

enum class LineKind {
  kOther,         // of no known form
  kOutput,        // what an application printed: no report about it
  kWithoutLevel,  // a report in a form that has no level
  kReport,
};

// What a line of the log says. A priority of -1 and an empty process id are not known.
struct LogMessage {
  int priority = -1;  // facility and level as syslog(3) has them
  std::string_view ident = "";
  std::string_view pid = "";
  std::string_view text = "";
};

// A line as BusyBox's syslogd writes it: "Jan 12 00:00:12 board user.err webapp[12]: disk full".
class UsualLine {
 public:
  // The line stays the caller's.
  UsualLine(LogFormat format, const char* line);
  explicit UsualLine(const LogMessage& message) { write(message); }
  UsualLine(const UsualLine&) = delete;
  UsualLine& operator=(const UsualLine&) = delete;

  [[nodiscard]] LineKind kind() const { return kind_; }
  [[nodiscard]] const char* text() const { return text_; }

 private:
  void write(const LogMessage& message);

  LineKind kind_ = LineKind::kOther;
  const char* text_ = room_;
  char room_[1024] = "";
};

}  // namespace tarviod

#endif
