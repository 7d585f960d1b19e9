#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "base/line_reader.h"
#include "base/owners.h"
#include "tarvio/log_monitor.h"
#include "tarvio/process.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

char* tq_last_syslog = nullptr;

namespace {

constexpr size_t kPieceSize = 255;
constexpr size_t kReadAheadBytes = 64UL * 1024;  // what a pipe holds
constexpr int kNoMatch = -1;

// What a command printed.
struct Output {
  int count = 0;              // lines, or pieces of lines
  int matched_at = kNoMatch;  // the last one that equals the line that was looked for
  tarvio::StringList behind;  // copies of those behind it
};

// Drops what is known to be old at once, so that no more than the new lines have to fit in memory.
void drop_all(tq_list_t* lines) {
  while (void* line = tq_list_first(lines)) {
    (void)tq_list_remove(lines, 0);
    free(line);
  }
}

// As one printf prints it, in a third of its time.
void print(const char* line) {
  flockfile(stdout);
  (void)fputs_unlocked(" dup ", stdout);
  (void)fputs_unlocked(line, stdout);
  funlockfile(stdout);
}

bool take(Output& output, const char* line, const char* last) {
  print(line);
  const int at = output.count++;
  if (last != nullptr && strcmp(last, line) == 0) {
    (void)puts(" this line is match!");
    output.matched_at = at;
    drop_all(output.behind.get());
    return true;
  }
  char* copy = nullptr;
  tq_strdup(&copy, line);
  if (copy != nullptr && tq_list_add(output.behind.get(), copy) == 0) return true;
  free(copy);
  return false;
}

// 0, or an error that leaves what was read incomplete.
int read_output(int fd, const char* last, Output& output) {
  const tarvio::CString ahead(static_cast<char*>(malloc(kReadAheadBytes)));
  if (ahead == nullptr) return ENOMEM;
  char room[kPieceSize];
  tarvio::LineCutter piece(tarvio::LineEnd::kLineFeed, room);
  tarvio::LineReader reader(fd, {ahead.get(), kReadAheadBytes}, piece);
  while (reader.next()) {
    if (!take(output, piece.text(), last)) return ENOMEM;
  }
  return 0;
}

// The nodes go over as they are. They are counted before.
void append(tq_list_t* to, tq_list_t* from) {
  tq_list_node* tail = tq_list_get_last(to);
  (tail == nullptr ? to->head : tail->next) = from->head;
  to->count += from->count;
  from->head = nullptr;
  from->count = 0;
}

}  // namespace

int tq_log_read(const char* command, const char* last, tq_list_t* new_lines) {
  if (command == nullptr || new_lines == nullptr) return EINVAL;
  int pid = -1;
  int fd = -1;
  const int created = tq_create_process(command, TQ_PIPE_STDOUT, &pid, nullptr, &fd, nullptr);
  if (created != 0) return created;
  const tarvio::Fd pipe(fd);
  Output output;
  output.behind.reset(tq_list_create());
  if (output.behind == nullptr) return ENOMEM;
  if (tq_last_syslog != nullptr) TQ_DEBUG("syslog lastlog %s ", tq_last_syslog);

  if (const int failed = read_output(pipe.get(), last, output); failed != 0) return failed;
  TQ_DEBUG("Check syslog %d lines, lastlog matched at line %d", output.count, output.matched_at);

  if (const tq_list_node* newest = tq_list_get_last(output.behind.get()); newest != nullptr) {
    char* copy = nullptr;
    tq_strdup(&copy, static_cast<const char*>(newest->element));
    if (copy == nullptr) return ENOMEM;
    free(tq_last_syslog);
    tq_last_syslog = copy;
    append(new_lines, output.behind.get());
  }
  TQ_DEBUG("check log size %d", tq_list_size(new_lines));
  return 0;
}
