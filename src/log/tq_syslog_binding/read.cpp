#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <utility>

#include "base/line_reader.h"
#include "base/list_appender.h"
#include "base/owners.h"
#include "tarvio/log_monitor.h"
#include "tarvio/process.h"
#include "util/log_macros.h"

char* tq_last_syslog = nullptr;

namespace {

constexpr size_t kPieceSize = 255;
constexpr size_t kReadAheadBytes = 64UL * 1024;  // what a pipe holds
constexpr int kNoMatch = -1;

// As one printf prints it, in a third of its time (oddity 106).
void print(const char* line) {
  flockfile(stdout);
  (void)fputs_unlocked(" dup ", stdout);
  (void)fputs_unlocked(line, stdout);
  funlockfile(stdout);
}

// What a command printed.
struct Output {
  tarvio::ListAppender new_lines;  // copies of the lines after the last match
  const char* newest = nullptr;    // the last one of them
  int count = 0;                   // lines, or pieces of lines
  int matched_at = kNoMatch;       // the last match counts (oddity 107)
};

// What is known to be old goes at once, so that only the new lines have to fit in memory.
void match(Output& output) {
  (void)puts(" this line is match!");
  output.matched_at = output.count;
  output.newest = nullptr;
  output.new_lines.free_all();
}

bool append_copy(Output& output, const char* line) {
  tarvio::CString copy = tarvio::copy_of(line);
  const char* const newest = copy.get();
  if (!output.new_lines.append(std::move(copy))) return false;
  output.newest = newest;
  return true;
}

// 0, or an error that leaves what was read incomplete.
int read_output(int fd, const char* last, Output& output) {
  const tarvio::CString ahead(static_cast<char*>(malloc(kReadAheadBytes)));
  if (ahead == nullptr) return ENOMEM;
  char room[kPieceSize];
  tarvio::LineCutter piece(tarvio::LineEnd::kLineFeed, room);
  tarvio::LineReader reader(fd, {ahead.get(), kReadAheadBytes}, piece);
  for (; reader.next(); ++output.count) {
    print(piece.text());
    if (last != nullptr && strcmp(last, piece.text()) == 0) {
      match(output);
    } else if (!append_copy(output, piece.text())) {
      return ENOMEM;
    }
  }
  return 0;
}

}  // namespace

int tq_log_read(const char* command, const char* last, tq_list_t* new_lines) {
  if (command == nullptr || new_lines == nullptr) return EINVAL;
  int pid = -1;
  int fd = -1;
  const int created = tq_create_process(command, TQ_PIPE_STDOUT, &pid, nullptr, &fd, nullptr);
  if (created != 0) return created;
  const tarvio::Fd pipe(fd);
  const tarvio::StringList lines(tq_list_create());
  if (lines == nullptr) return ENOMEM;
  if (tq_last_syslog != nullptr) TQ_DEBUG("syslog lastlog %s ", tq_last_syslog);

  Output output = {.new_lines = tarvio::ListAppender(*lines)};
  if (const int failed = read_output(pipe.get(), last, output); failed != 0) return failed;
  TQ_DEBUG("Check syslog %d lines, lastlog matched at line %d", output.count, output.matched_at);
  if (output.newest != nullptr) {
    char* const newest = tarvio::copy_of(output.newest).release();
    if (newest == nullptr) return ENOMEM;
    free(std::exchange(tq_last_syslog, newest));
    tarvio::ListAppender(*new_lines).append_all(*lines);
  }
  TQ_DEBUG("check log size %d", new_lines->count);
  return 0;
}
