// Reads the new bytes of the log itself instead of with tq_log_read (oddity 110). Logs nothing: its
// messages could go to the log that it reads, and make it grow without end.
#include "log_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <span>
#include <string_view>

#include "base/deadline.h"
#include "base/line_cutter.h"
#include "base/owners.h"
#include "base/pipe.h"
#include "log_report.h"
#include "settings/command_line.h"
#include "tarvio/tarvio.h"

namespace tarviod {

namespace {

using tarvio::LineCutter;

enum Argument { kFile = 1, kPeriod, kFirstHook };

constexpr char kNotRegular[] = "is not a regular file";
constexpr char kOtherFormat[] =
    "no line has the form 'Jan 12 00:00:12 board user.err webapp[12]: disk full', so none counts: "
    "change the format of the log as tarviod(8) says";
static_assert(sizeof kOtherFormat <= kMaxDetailBytes);
constexpr size_t kReadBytes = 16UL * 1024;

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

// A field of two words and a dot after month, day, time and host, which the parser does not ask
// for; a mark line may lack it.
bool has_level(const char* line) {
  constexpr int kFieldsBefore = 4;
  if (tq_get_month(line) < 0) return false;
  for (int field = 0; field < kFieldsBefore; ++field) {
    line += strcspn(line, " ");
    line += strspn(line, " ");
  }
  const std::string_view level(line, strcspn(line, " \n"));
  return level.find("--") != level.npos || (level.find('.') != level.npos && level.back() != ':');
}

bool is_same_file(const LogPosition& position, const struct stat& info) {
  return position.device == info.st_dev && position.inode == info.st_ino;
}

void remember(LogLine& line, uint64_t at, std::string_view bytes) {
  line.at = at;
  line.length = bytes.size();
  std::copy(bytes.begin(), bytes.end(), line.bytes);
}

// Whether the lines of the log are such that the parser can take them apart.
enum class Format { kUnknown, kOther, kOtherReported, kUsual };

class LogReader {
 public:
  LogReader(const LogPosition& begin, const char* file, char** hooks);

  // Reports what is new in the log, and once, until the log can be read again, why it cannot.
  void look();
  void send(ReportKind kind);

 private:
  const char* read_log();
  void complain(const char* why);
  void find_position(int log, const struct stat& info);
  bool is_in_place(int log, const LogLine& line);
  bool read_to(int log, uint64_t end);
  void cut_lines(std::string_view bytes);
  void judge_format(const char* line);
  void count(const char* line);

  const char* file_;
  char** hooks_;  // texts and applications in turns, null at the end
  bool complained_ = false;
  Format format_ = Format::kUnknown;
  LogReport report_ = {};
  LogPosition& position_ = report_.position;
  char line_[kMaxLineBytes + 1];
  LineCutter lines_{tarvio::LineEnd::kLineFeed, line_, tarvio::Excess::kDropped};
  std::array<char, kReadBytes> room_;
};

LogReader::LogReader(const LogPosition& begin, const char* file, char** hooks)
    : file_(file), hooks_(hooks) {
  position_ = begin;
  std::string_view begun(begin.begun.bytes, begin.begun.length);
  (void)lines_.feed(begun);
}

void LogReader::send(ReportKind kind) {
  report_.kind = kind;
  (void)tarvio::write_all(kReportFd, {reinterpret_cast<const char*>(&report_), sizeof report_});
}

void LogReader::look() {
  const char* why = read_log();
  if (why != nullptr && !complained_) complain(why);
  complained_ = why != nullptr;
}

void LogReader::complain(const char* why) {
  (void)snprintf(report_.detail, sizeof report_.detail, "%s", why);
  send(ReportKind::kComplaint);
}

// The log is closed between two looks, so that its file system can be unmounted. Null, or why it
// cannot be read.
const char* LogReader::read_log() {
  // Without O_NONBLOCK a FIFO would hold the call until somebody writes to it.
  const tarvio::Fd log(open(file_, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info = {};
  if (!log.valid() || fstat(log.get(), &info) != 0) {
    if (errno == ENOENT) position_.known = true;            // all of a later log is new
    return errno == ENXIO ? kNotRegular : strerror(errno);  // ENXIO: a socket
  }
  if (!S_ISREG(info.st_mode)) return kNotRegular;
  const auto size = static_cast<uint64_t>(info.st_size);
  if (position_.known && is_same_file(position_, info) && position_.offset == size) return nullptr;
  find_position(log.get(), info);
  // What is written meanwhile is for the next look, so that each look has an end.
  if (!read_to(log.get(), size)) return strerror(errno);
  position_.known = true;
  if (format_ == Format::kOther) {
    format_ = Format::kOtherReported;
    complain(kOtherFormat);
  }
  send(ReportKind::kPosition);
  return nullptr;
}

// Moves the position to where the new bytes of the open log begin. A log that was truncated may
// have grown beyond the position since, so what was read last must still be in its place; if only
// the begun line is not, that line alone is read again.
void LogReader::find_position(int log, const struct stat& info) {
  const bool is_same = is_same_file(position_, info) &&
                       position_.offset <= static_cast<uint64_t>(info.st_size) &&
                       is_in_place(log, position_.last);
  if (is_same && is_in_place(log, position_.begun)) return;
  const bool has_begun = lines_.finish();
  if (is_same) {
    position_.offset = position_.begun.at;
    position_.begun.length = 0;
  } else {
    position_ = {.known = position_.known, .device = info.st_dev, .inode = info.st_ino};
    // A line that had no end when its log was replaced counts as it is.
    if (has_begun) count(lines_.text());
  }
}

// After a read error it counts as in place: the whole log is not to count again because of it.
bool LogReader::is_in_place(int log, const LogLine& line) {
  if (line.length == 0) return true;
  const ssize_t count = pread(log, room_.data(), line.length, static_cast<off_t>(line.at));
  return count < 0 || (count == static_cast<ssize_t>(line.length) &&
                       memcmp(room_.data(), line.bytes, line.length) == 0);
}

// False, with errno, when reading failed.
bool LogReader::read_to(int log, uint64_t end) {
  while (position_.offset < end) {
    const auto wanted = std::min<uint64_t>(room_.size(), end - position_.offset);
    const ssize_t count =
        pread(log, room_.data(), static_cast<size_t>(wanted), static_cast<off_t>(position_.offset));
    if (count <= 0) return count == 0;  // 0: truncated meanwhile, which the next look finds
    cut_lines({room_.data(), static_cast<size_t>(count)});
  }
  return true;
}

void LogReader::cut_lines(std::string_view bytes) {
  const uint64_t end = position_.offset + bytes.size();
  while (lines_.feed(bytes) == LineCutter::Result::kLine) {
    position_.offset = end - bytes.size();
    remember(position_.last, position_.begun.at, lines_.line());
    remember(position_.begun, position_.offset, {});
    judge_format(lines_.text());
    count(lines_.text());
  }
  position_.offset = end;
  remember(position_.begun, position_.begun.at, lines_.line());
}

// One line of the usual form is enough, for good: some lines of a log may have any form.
void LogReader::judge_format(const char* line) {
  if (format_ == Format::kUsual) return;
  if (has_level(line)) {
    format_ = Format::kUsual;
  } else if (format_ == Format::kUnknown) {
    format_ = Format::kOther;
  }
}

// What was in the log when the manager started does not count.
void LogReader::count(const char* line) {
  if (!position_.known) return;
  const Parsed parsed(tq_parse_syslog(line));
  const char* hook = tq_check_log_hook(parsed.get());
  if (hook == nullptr) return;
  // A hook is the argument itself (oddity 102), and its application follows.
  char** place = hooks_;
  while (*place != hook) ++place;
  (void)snprintf(report_.application, sizeof report_.application, "%s", place[1]);
  make_detail(parsed->message, report_.detail);
  report_.level = parsed->level;
  send(ReportKind::kChange);
}

// Closes the pipes that each process started so far has left open in the manager (oddity 42).
bool receive_position(LogPosition& position) {
  const ssize_t count =
      tarvio::read_some(kPositionFd, {reinterpret_cast<char*>(&position), sizeof position});
  // Where the kernel lacks the call they stay open, which does no harm.
  (void)close_range(STDERR_FILENO + 1, ~0U, 0);
  return count == sizeof position;
}

// The manager ends the reader, by closing the pipe: signals to the whole group are not for it.
void leave_signals_to_manager() {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) (void)signal(number, SIG_IGN);
}

// False when memory ran out. The manager starts another reader then.
bool set_hooks(char** hooks) {
  (void)tq_setup_log_manager();
  for (char** hook = hooks; *hook != nullptr; hook += 2) {
    if (tq_set_log_hook(*hook) != 0) return false;
  }
  return true;
}

bool manager_is_gone_after(int wait_ms) {
  return tarvio::wait_for(kReportFd, 0, tarvio::Deadline::after(wait_ms));
}

}  // namespace

int run_log_reader(int argc, char** argv) {
  LogPosition begin = {};
  if (argc < kFirstHook || !receive_position(begin)) return kExitUsage;
  leave_signals_to_manager();
  if (!set_hooks(argv + kFirstHook)) return EXIT_FAILURE;
  LogReader reader(begin, argv[kFile], argv + kFirstHook);
  const int period_ms = atoi(argv[kPeriod]) * 1000;
  reader.look();
  reader.send(ReportKind::kPosition);  // even without news: the manager waits for it
  while (!manager_is_gone_after(period_ms)) reader.look();
  return 0;
}

}  // namespace tarviod
