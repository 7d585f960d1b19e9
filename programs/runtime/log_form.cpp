#include "runtime/log_form.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include <algorithm>

#include "runtime/output_facility.h"
#include "tarvio/log_monitor.h"

namespace runtime {

namespace {

constexpr std::string_view kOutputPrefix = "local6.";

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

// Takes the next field, which ends before a blank, and the blanks after it.
std::string_view take_field(const char*& line) {
  const std::string_view field(line, strcspn(line, " \n"));
  line += field.size();
  line += strspn(line, " ");
  return field;
}

// A field of two words and a dot, which the parser does not ask for; a mark line may lack it.
bool is_level(std::string_view field) {
  return field.find("--") != field.npos || (field.find('.') != field.npos && field.back() != ':');
}

// The rest of a line after month, day, time and host; null when it does not begin so.
const char* after_host(const char* line) {
  if (tq_get_month(line) < 0) return nullptr;
  (void)take_field(line);
  (void)take_field(line);
  const bool has_time = is_digit(line[0]) && take_field(line).find(':') != std::string_view::npos;
  (void)take_field(line);
  return has_time ? line : nullptr;
}

LineKind kind_of_usual(const char* line) {
  const char* rest = after_host(line);
  if (rest == nullptr) return LineKind::kOther;
  const std::string_view level = take_field(rest);
  if (!is_level(level)) return LineKind::kOther;
  return level.find(kOutputPrefix) == 0 ? LineKind::kOutput : LineKind::kReport;
}

// "webapp[12]: disk full". False for a text without a program before it.
bool take_tag(const char* text, LogMessage& message) {
  const size_t length = strcspn(text, ":\n");
  message.ident = {text, length};
  if (length == 0 || text[length] != ':') return false;
  message.text = text + length + 1 + strspn(text + length + 1, " ");
  return true;
}

// "Jan 12 00:00:12 board webapp[12]: disk full"
bool parse_traditional(const char* line, LogMessage& message) {
  const char* rest = after_host(line);
  return rest != nullptr && take_tag(rest, message);
}

// "2026-01-12T00:00:12.123456+00:00 board webapp[12]: disk full"
bool parse_iso(const char* line, LogMessage& message) {
  const bool has_time = is_digit(line[0]) && take_field(line).find('T') != std::string_view::npos;
  (void)take_field(line);
  return has_time && take_tag(line, message);
}

// Skips "-", or elements such as [a@1 key="value"]. Null when neither is there.
const char* after_structured_data(const char* text) {
  if (text[0] == '-') return text + 1;
  if (text[0] != '[') return nullptr;
  bool is_quoted = false;
  for (; *text != '\0'; ++text) {
    if (is_quoted && *text == '\\' && text[1] != '\0') {
      ++text;
    } else if (*text == '"') {
      is_quoted = !is_quoted;
    } else if (!is_quoted && *text == ']' && text[1] != '[') {
      return text + 1;
    }
  }
  return nullptr;
}

// "<11>1 2026-01-12T00:00:12.123456+00:00 board webapp 12 - - disk full"
bool parse_rfc5424(const char* line, LogMessage& message) {
  constexpr int kFieldsBeforeProgram = 3;
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  if (line[0] != '<' || !is_digit(line[1])) return false;
  char* end = nullptr;
  message.priority = static_cast<int>(strtol(line + 1, &end, 10));
  line = end;
  if (line[0] != '>' || !is_digit(line[1])) return false;
  for (int field = 0; field < kFieldsBeforeProgram; ++field) (void)take_field(line);
  message.ident = take_field(line);
  message.pid = take_field(line);
  if (message.pid == "-") message.pid = {};
  (void)take_field(line);  // what kind of message it is
  const char* text = after_structured_data(line);
  if (text == nullptr) return false;
  message.text = text + strspn(text, " ");
  if (message.text.find(kByteOrderMark) == 0) message.text.remove_prefix(kByteOrderMark.size());
  return true;
}

bool parse(LogFormat format, const char* line, LogMessage& message) {
  switch (format) {
    case LogFormat::kTraditional:
      return parse_traditional(line, message);
    case LogFormat::kIso:
      return parse_iso(line, message);
    default:
      return parse_rfc5424(line, message);
  }
}

LogFormat guess_format(const char* line) {
  if (line[0] == '<') return LogFormat::kRfc5424;
  if (is_digit(line[0])) return LogFormat::kIso;
  return kind_of_usual(line) == LineKind::kOther ? LogFormat::kTraditional : LogFormat::kBusybox;
}

// As a string of printf takes it.
int width(std::string_view text) { return static_cast<int>(text.size()); }

}  // namespace

UsualLine::UsualLine(LogFormat format, const char* line)
    : format_(format == LogFormat::kAuto ? guess_format(line) : format) {
  if (format_ == LogFormat::kBusybox) {
    kind_ = kind_of_usual(line);
    text_ = line;
    return;
  }
  LogMessage message;
  if (parse(format_, line, message)) write(message);
}

void UsualLine::write(const LogMessage& message) {
  if (message.ident.empty()) return;
  const bool has_level = message.priority >= 0;
  const bool has_pid = !message.pid.empty();
  (void)snprintf(room_, sizeof room_, "Jan  1 00:00:00 - user.%s %.*s%s%.*s%s: %.*s",
                 has_level ? kSeverities[LOG_PRI(message.priority)] : "none", width(message.ident),
                 message.ident.data(), has_pid ? "[" : "", width(message.pid), message.pid.data(),
                 has_pid ? "]" : "", width(message.text), message.text.data());
  std::replace(room_, room_ + strlen(room_), '\n', ' ');  // in a message of several lines
  kind_ = has_level ? LineKind::kReport : LineKind::kWithoutLevel;
  if (has_level && (message.priority & LOG_FACMASK) == runtime::kOutputFacility)
    kind_ = LineKind::kOutput;
}

void FormJudge::see(LineKind kind) {
  const bool is_without_level = kind == LineKind::kWithoutLevel && !all_have_levels_;
  if (is_without_level) complaint_ = kLinesWithoutLevel;
  if (kind == LineKind::kOther && complaint_ == nullptr) complaint_ = kOtherForm;
  is_good_ = is_good_ || (kind != LineKind::kOther && !is_without_level);
}

}  // namespace runtime
