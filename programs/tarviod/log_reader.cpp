#include "log_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "command_line.h"
#include "log_report.h"
#include "log_text.h"
#include "tarvio/tarvio.h"
#include "warn.h"

namespace tarviod {

namespace {

enum Argument { kLevel = 1, kFile, kPeriod, kFirstHook };

struct FreeLines {
  void operator()(tq_list_t* lines) const { (void)tq_list_free(lines, 1); }
};
using Lines = std::unique_ptr<tq_list_t, FreeLines>;

struct FreeParsed {
  void operator()(tq_syslog_line* line) const {
    free(line->ident);
    free(line->message);
    free(line);
  }
};
using Parsed = std::unique_ptr<tq_syslog_line, FreeParsed>;

bool is_same(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

class LogReader {
 public:
  LogReader(const LogPosition& begin, const char* file, char** hooks);

  // Sends what is new. True when that took a read.
  bool look();
  void send(ReportKind kind);

 private:
  [[nodiscard]] bool has_changed(const struct stat& info) const;
  [[nodiscard]] bool is_same_file(const struct stat& info) const;
  [[nodiscard]] bool is_continued(const struct stat& info, tq_list_t* lines) const;
  void read(const struct stat& before);
  void take(const struct stat& before, const struct stat& after, tq_list_t* lines);
  void take_lines(const tq_list_node* node, bool are_new);
  void take_line(const char* line);
  void complain(const char* why);

  const char* file_;
  char** hooks_;  // texts and applications in turns, null at the end
  char command_[sizeof "cat " + PATH_MAX];
  LogReport report_ = {};
  LogPosition& position_ = report_.position;
  bool complained_ = false;
};

LogReader::LogReader(const LogPosition& begin, const char* file, char** hooks)
    : file_(file), hooks_(hooks) {
  position_ = begin;
  (void)snprintf(command_, sizeof command_, "cat %s", file);
  (void)tq_setup_log_manager();
  for (char** hook = hooks; *hook != nullptr; hook += 2) (void)tq_set_log_hook(*hook);
}

// Once, until the log can be read again.
void LogReader::complain(const char* why) {
  if (!complained_) warn(file_, why);
  complained_ = true;
}

void LogReader::send(ReportKind kind) {
  report_.kind = kind;
  ssize_t written = -1;
  do {
    written = write(kReportFd, &report_, sizeof report_);
  } while (written < 0 && errno == EINTR);
}

bool LogReader::is_same_file(const struct stat& info) const {
  return position_.device == info.st_dev && position_.file == info.st_ino;
}

bool LogReader::has_changed(const struct stat& info) const {
  return !position_.known || !is_same_file(info) ||
         position_.size_bytes != static_cast<uint64_t>(info.st_size);
}

bool LogReader::look() {
  struct stat info = {};
  if (stat(file_, &info) != 0) {
    // All that a later file holds is new, when there is none at first.
    position_.known = position_.known || errno == ENOENT;
    complain(strerror(errno));
  } else if (!S_ISREG(info.st_mode)) {
    complain("is not a regular file");
  } else if (access(file_, R_OK) != 0) {
    complain(strerror(errno));
  } else if (has_changed(info)) {
    read(info);
    return true;
  } else {
    complained_ = false;
  }
  return false;
}

void LogReader::read(const struct stat& before) {
  const Lines lines(tq_list_create());
  const int code = tq_log_read(command_, nullptr, lines.get());
  struct stat after = {};
  if (stat(file_, &after) != 0) after = before;
  if (code != 0) {
    complain(strerror(code));
  } else if (lines->head == nullptr && is_same(before, after) &&
             std::min(before.st_size, after.st_size) > 0) {
    complain("cat gives nothing of it");
  } else {
    complained_ = false;
    take(before, after, lines.get());
  }
}

// Whether the lines begin with those that are read already. A file that was cut may have grown
// since, so the last known line must be in its place.
bool LogReader::is_continued(const struct stat& info, tq_list_t* lines) const {
  if (!is_same_file(info) || position_.size_bytes > static_cast<uint64_t>(info.st_size)) {
    return false;
  }
  if (position_.pieces == 0) return true;
  void* piece = nullptr;
  (void)tq_list_get(lines, static_cast<int32_t>(position_.pieces) - 1, &piece);
  return piece != nullptr && strcmp(static_cast<const char*>(piece), position_.last) == 0;
}

void LogReader::take(const struct stat& before, const struct stat& after, tq_list_t* lines) {
  const bool is_first = !position_.known;
  const bool is_continued_log = is_continued(before, lines);
  const bool is_rotated = !is_same(before, after);
  const bool is_cut = !is_rotated && after.st_size < before.st_size;
  const LogPosition known = position_;
  position_.size_bytes = 0;  // until all of it is taken, a further read has to follow
  // Cut while it was read, it may have given old lines alone.
  if (is_cut && !is_first && !is_continued_log) return;

  if (!is_continued_log) position_ = {};
  position_.known = true;
  position_.device = after.st_dev;
  position_.file = after.st_ino;
  position_.begun[0] = '\0';
  if (!is_continued_log && known.begun[0] != '\0') take_line(known.begun);

  const tq_list_node* node = lines->head;
  for (uint64_t piece = 0; piece < position_.pieces; ++piece) node = node->next;
  take_lines(node, !is_first);
  // Where it was rotated or cut meanwhile, the next read tells whether these are its lines.
  if (!is_rotated && !is_cut) position_.size_bytes = static_cast<uint64_t>(before.st_size);
  send(ReportKind::kPosition);
}

void LogReader::take_lines(const tq_list_node* node, bool are_new) {
  LineText line;
  uint64_t pieces = position_.pieces;
  for (; node != nullptr; node = node->next) {
    const auto* piece = static_cast<const char*>(node->element);
    line.append(piece);
    ++pieces;
    if (!ends_line(piece, node->next == nullptr)) continue;
    position_.pieces = pieces;
    (void)snprintf(position_.last, sizeof position_.last, "%s", piece);
    if (are_new) take_line(line.get());
    line.clear();
  }
  // What is written of a line is new once the rest is there, or once the log is another one.
  if (are_new) (void)snprintf(position_.begun, sizeof position_.begun, "%s", line.get());
}

void LogReader::take_line(const char* line) {
  const Parsed parsed(tq_parse_syslog(line));
  const char* hook = tq_check_log_hook(parsed.get());
  if (hook == nullptr) return;
  // A hook is the argument itself, and its application follows.
  char** place = hooks_;
  while (*place != hook) ++place;
  (void)snprintf(report_.application, sizeof report_.application, "%s", place[1]);
  make_detail(parsed->message, report_.detail);
  report_.level = parsed->level;
  send(ReportKind::kChange);
}

// The log reader's own: what the manager has is of no use here.
bool take_descriptors(LogPosition& position) {
  const ssize_t count = ::read(kPositionFd, &position, sizeof position);
  // Without the call they stay open, which does no harm.
  (void)close_range(kReportFd + 1, ~0U, 0);
  return count == sizeof position && fcntl(kReportFd, F_SETFD, FD_CLOEXEC) == 0;
}

// The end comes from the manager, when it closes the pipe: a signal to all of its group is not for
// the reader.
void leave_signals_to_manager() {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) (void)signal(number, SIG_IGN);
  (void)tq_ignore_wait_child_process_signal();
}

bool manager_is_gone_after(int wait_ms) {
  pollfd report = {.fd = kReportFd, .events = 0, .revents = 0};
  return poll(&report, 1, wait_ms) > 0;
}

}  // namespace

int run_log_reader(int argc, char** argv) {
  LogPosition begin = {};
  if (argc < kFirstHook || !take_descriptors(begin)) return kExitUsage;
  leave_signals_to_manager();
  tq_log_init();
  // What a read itself logs below that would go into the log that is read, and make it grow.
  tq_set_log_level(std::max(atoi(argv[kLevel]), static_cast<int>(TQ_LOG_WARNING)));

  LogReader reader(begin, argv[kFile], argv + kFirstHook);
  const int period_ms = atoi(argv[kPeriod]) * 1000;
  int reads = reader.look() ? 1 : 0;
  reader.send(
      ReportKind::kPosition);  // also when there was nothing to read: the manager waits for it
  while (reads < kReadsOfALogReader) {
    if (manager_is_gone_after(period_ms)) return 0;
    if (reader.look()) ++reads;
  }
  reader.send(ReportKind::kDone);
  return 0;
}

}  // namespace tarviod
