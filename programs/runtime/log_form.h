// Lines of the system log in the forms that log daemons write. The parser takes one of them, so the
// others are written in it.
#ifndef TARVIO_RUNTIME_LOG_FORM_H
#define TARVIO_RUNTIME_LOG_FORM_H

#include <string_view>

#include "runtime/log_format.h"

namespace runtime {

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
  // The form that it has, unless the kind is kOther.
  [[nodiscard]] LogFormat format() const { return format_; }
  [[nodiscard]] const char* text() const { return text_; }

 private:
  void write(const LogMessage& message);

  LineKind kind_ = LineKind::kOther;
  LogFormat format_ = LogFormat::kAuto;
  const char* text_ = room_;
  char room_[1024] = "";
};

inline constexpr char kOtherForm[] =
    "no line has the form 'Jan 12 00:00:12 board user.err webapp[12]: disk full' or another one "
    "of tarviod.conf(5), so none counts: change the format of the log as it says";
inline constexpr char kLinesWithoutLevel[] =
    "the lines have no level, so those of hooks without one do not count: add 'level.TEXT: err' "
    "for each hook.TEXT, or change the format of the log as tarviod.conf(5) says";

// Whether the lines of a log can count.
class FormJudge {
 public:
  // all_have_levels  each hook has a level for lines that have none.
  explicit FormJudge(bool all_have_levels) : all_have_levels_(all_have_levels) {}

  void see(LineKind kind);
  // Why none can that was seen, with the remedy; null if one can, or none was seen. One good line
  // is enough, for good: some lines of a log may have any form.
  [[nodiscard]] const char* complaint() const { return is_good_ ? nullptr : complaint_; }

 private:
  bool all_have_levels_;
  bool is_good_ = false;
  const char* complaint_ = nullptr;
};

}  // namespace runtime

#endif
