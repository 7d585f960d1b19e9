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

static_assert(sizeof runtime::kOtherForm <= kMaxDetailBytes &&
              sizeof runtime::kLinesWithoutLevel <= kMaxDetailBytes);

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
int level_of_hook(char* const* hook) { return runtime::index_of(hook[2], runtime::kSeverities); }

bool all_have_levels(char** hooks) {
  for (char** hook = hooks; *hook != nullptr; hook += kWordsOfHook) {
    if (level_of_hook(hook) < 0) return false;
  }
  return true;
}

}  // namespace

LogReporter::LogReporter(const LogPosition& begin, char** hooks)
    : hooks_(hooks), form_(all_have_levels(hooks)) {
  report_.position = begin;
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
  if (is_form_reported_ || form_.complaint() == nullptr) return;
  is_form_reported_ = true;
  complain(form_.complaint());
}

void LogReporter::count(const runtime::UsualLine& line) {
  form_.see(line.kind());
  const bool is_report =
      line.kind() == runtime::LineKind::kReport || line.kind() == runtime::LineKind::kWithoutLevel;
  if (!is_report || !report_.position.known) return;
  const Parsed parsed(tq_parse_syslog(line.text()));
  const char* text = tq_check_log_hook(parsed.get());
  if (text == nullptr) return;
  char** hook = hooks_;
  while (*hook != text) hook += kWordsOfHook;  // the argument itself (oddity 102)
  if (line.kind() == runtime::LineKind::kWithoutLevel) {
    if (level_of_hook(hook) < 0) return;
    parsed->level = state_of(level_of_hook(hook));
  }
  (void)snprintf(report_.application, sizeof report_.application, "%s", hook[1]);
  make_detail(parsed->message, report_.detail);
  report_.level = parsed->level;
  send(ReportKind::kChange);
}

}  // namespace tarviod
