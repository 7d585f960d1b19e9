#include "journal.h"

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <iterator>
#include <string_view>
#include <utility>

#include "base/deadline.h"
#include "base/line_cutter.h"
#include "base/owners.h"
#include "base/pipe.h"
#include "journal_entry.h"
#include "log_reader.h"

namespace tarviod {

namespace {

using tarvio::Deadline;
using tarvio::LineCutter;

constexpr char kEnded[] =
    "journalctl does not run: see why with 'journalctl -f', or set log_source to file";
constexpr size_t kReadBytes = 4096;

// journalctl as a child process, which ends with this object, and with this process.
class Journalctl {
 public:
  Journalctl() = default;
  Journalctl(const Journalctl&) = delete;
  Journalctl& operator=(const Journalctl&) = delete;
  ~Journalctl() { stop(); }

  [[nodiscard]] int fd() const { return output_.get(); }

  // Prints what comes after the cursor of a position, or, where that is not known, the newest entry
  // and what comes after it. False when there is no process.
  bool start(const LogPosition& position);
  void stop();

 private:
  pid_t pid_ = -1;
  tarvio::Fd output_;
};

[[noreturn]] void become_journalctl(int output, pid_t parent, const LogPosition& position) {
  char after[sizeof position.last.bytes + 32] = "--lines=1";
  if (position.known) {
    (void)snprintf(after, sizeof after, "--after-cursor=%.*s",
                   static_cast<int>(position.last.length), position.last.bytes);
  }
  char fields[128];
  (void)snprintf(fields, sizeof fields, "--output-fields=%s", kJournalFields);
  // Without --no-tail it would leave out all but the last ten entries.
  const char* const words[] = {"journalctl",
                               "--quiet",
                               "--follow",
                               "--output=json",
                               fields,
                               after,
                               position.known ? "--no-tail" : nullptr,
                               nullptr};
  // The pipe alone would let it live until it prints again.
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent &&
      dup2(output, STDOUT_FILENO) >= 0) {
    (void)execvp(words[0], const_cast<char* const*>(words));
  }
  _exit(1);
}

bool Journalctl::start(const LogPosition& position) {
  tarvio::Pipe output;
  const pid_t parent = getpid();
  if (output.valid()) pid_ = fork();
  if (pid_ == 0) become_journalctl(output.write_end.get(), parent, position);
  if (pid_ > 0) output_ = std::move(output.read_end);
  return pid_ > 0;
}

void Journalctl::stop() {
  output_.reset();
  if (pid_ <= 0) return;
  (void)kill(pid_, SIGKILL);
  (void)waitpid(std::exchange(pid_, -1), nullptr, 0);
}

class Journal {
 public:
  explicit Journal(LogReporter& reporter) : reporter_(reporter) {}

  [[nodiscard]] int fd() const { return journalctl_.fd(); }
  bool start() { return journalctl_.start(reporter_.position()); }
  void stop() {
    journalctl_.stop();
    (void)lines_.finish();  // what it began is not for the next one
    reporter_.complain_about_log(kEnded);
  }

  // False when journalctl has ended.
  bool read();

 private:
  void take(char* line);

  LogReporter& reporter_;
  Journalctl journalctl_;
  LineCutter lines_{tarvio::LineEnd::kLineFeed};  // journalctl keeps them short
};

bool Journal::read() {
  std::array<char, kReadBytes> room;
  const ssize_t count = tarvio::read_some(journalctl_.fd(), room);
  if (count <= 0) return false;
  std::string_view bytes(room.data(), static_cast<size_t>(count));
  LineCutter::Result result = LineCutter::Result::kLine;
  while ((result = lines_.feed(bytes)) == LineCutter::Result::kLine) take(lines_.text());
  if (reporter_.position().known) reporter_.send(ReportKind::kPosition);
  return result == LineCutter::Result::kNeedsMore;
}

// The newest entry at the start of the manager makes its position known, and does not count.
void Journal::take(char* line) {
  JournalEntry entry;
  LogPosition& position = reporter_.position();
  LogLine& last = position.last;
  if (!parse_entry(line, entry) || entry.cursor.size() > sizeof last.bytes) return;
  reporter_.complain_about_log(nullptr);
  last.length = entry.cursor.size();
  memcpy(last.bytes, entry.cursor.data(), last.length);
  reporter_.count(runtime::UsualLine(entry.message));
  position.known = true;
}

}  // namespace

void follow_journal(LogReporter& reporter, int pause_ms) {
  Journal journal(reporter);
  Deadline start_due = Deadline::after(0);
  pollfd waited[] = {{.fd = kReportFd, .events = 0, .revents = 0},
                     {.fd = -1, .events = POLLIN, .revents = 0}};
  do {
    bool runs = true;
    if (start_due.passed()) {
      start_due = Deadline::never();
      runs = journal.start();
    } else if (waited[1].revents != 0) {
      runs = journal.read();
    }
    if (!runs) {
      journal.stop();
      start_due = Deadline::after(pause_ms);
    }
    waited[1] = {.fd = journal.fd(), .events = POLLIN, .revents = 0};
    (void)poll(waited, std::size(waited), start_due.remaining_ms());
  } while (waited[0].revents == 0);
}

}  // namespace tarviod
