#include "log_reporter.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "base/pipe.h"
#include "log_reader.h"
#include "tarvio/tarvio.h"

namespace tarviod {

namespace {

constexpr char kOtherForm[] =
    "no line has the form 'Jan 12 00:00:12 board user.err webapp[12]: disk full' or another one "
    "of tarviod.conf(5), so none counts: change the format of the log as it says";
constexpr char kNoLevel[] =
    "the lines have no level, so those of hooks without one do not count: add 'level.TEXT: err' "
    "for each hook.TEXT, or change the format of the log as tarviod.conf(5) says";
static_assert(sizeof kOtherForm <= kMaxDetailBytes && sizeof kNoLevel <= kMaxDetailBytes);

struct FreeParsed {
  void operator()(tq_syslog_line* line) const {
    free(line->ident);
    free(line->message);
    free(line);
  }
};
using Parsed = std::unique_ptr<tq_syslog_line, FreeParsed>;

// Bytes of UTF-8 characters are not blanks.
bool is_blank(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return value <= ' ' || value == 0x7f;
}

// Makes the detail of a status: trimmed, and without control bytes, which would end the line in a
// reply to a client or reach a terminal.
void make_detail(std::string_view message, char (&detail)[kMaxDetailBytes + 1]) {
  while (!message.empty() && is_blank(message.front())) message.remove_prefix(1);
  while (!message.empty() && is_blank(message.back())) message.remove_suffix(1);
  const size_t length = std::min(message.size(), kMaxDetailBytes);
  *std::transform(message.begin(), message.begin() + length, detail,
                  [](char byte) { return is_blank(byte) ? ' ' : byte; }) = '\0';
}

int state_of(int severity) {
  if (severity <= LOG_ERR) return TQ_STATE_ERROR;
  return severity == LOG_WARNING ? TQ_STATE_THIRD : TQ_STATE_NORMAL;
}

// The number of a level, or -1 for none.
int level_of_hook(char* const* hook) { return index_of(hook[2], kSeverities); }

}  // namespace

LogReporter::LogReporter(const LogPosition& begin, char** hooks) : hooks_(hooks) {
  report_.position = begin;
  for (char** hook = hooks; *hook != nullptr; hook += kWordsOfHook) {
    all_have_levels_ = all_have_levels_ && level_of_hook(hook) >= 0;
  }
}

void LogReporter::send(ReportKind kind) {
  report_.kind = kind;
  (void)tarvio::write_all(kReportFd, {reinterpret_cast<const char*>(&report_), sizeof report_});
}

void LogReporter::complain(const char* why) {
  (void)snprintf(report_.detail, sizeof report_.detail, "%s", why);
  send(ReportKind::kComplaint);
}

void LogReporter::complain_about_log(const char* why) {
  if (why != nullptr && !is_log_bad_) complain(why);
  is_log_bad_ = why != nullptr;
}

void LogReporter::complain_about_form() {
  if (is_form_good_ || is_form_reported_ || form_complaint_ == nullptr) return;
  is_form_reported_ = true;
  complain(form_complaint_);
}

// One good line is enough, for good: some lines of a log may have any form.
void LogReporter::judge_form(LineKind kind) {
  const bool is_without_level = kind == LineKind::kWithoutLevel && !all_have_levels_;
  if (is_without_level) form_complaint_ = kNoLevel;
  if (kind == LineKind::kOther && form_complaint_ == nullptr) form_complaint_ = kOtherForm;
  is_form_good_ = is_form_good_ || (kind != LineKind::kOther && !is_without_level);
}

void LogReporter::count(const UsualLine& line) {
  judge_form(line.kind());
  const bool is_report = line.kind() == LineKind::kReport || line.kind() == LineKind::kWithoutLevel;
  if (!is_report || !report_.position.known) return;
  const Parsed parsed(tq_parse_syslog(line.text()));
  const char* text = tq_check_log_hook(parsed.get());
  if (text == nullptr) return;
  char** hook = hooks_;
  while (*hook != text) hook += kWordsOfHook;  // the argument itself (oddity 102)
  if (line.kind() == LineKind::kWithoutLevel) {
    if (level_of_hook(hook) < 0) return;
    parsed->level = state_of(level_of_hook(hook));
  }
  (void)snprintf(report_.application, sizeof report_.application, "%s", hook[1]);
  make_detail(parsed->message, report_.detail);
  report_.level = parsed->level;
  send(ReportKind::kChange);
}

}  // namespace tarviod
