// What the log reader reports to the manager: one record after another over a pipe.
#ifndef TARVIOD_LOG_REPORT_H
#define TARVIOD_LOG_REPORT_H

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

#include "runtime/config.h"

namespace tarviod {

inline constexpr size_t kMaxDetailBytes = 200;
inline constexpr size_t kMaxLineBytes = 511;  // of a line; the rest of it does not count

// A line of the log, and where it begins.
struct LogLine {
  uint64_t at = 0;
  size_t length = 0;
  char bytes[kMaxLineBytes];
};

// Up to where the log is read. Of the journal, `last` holds the cursor, and the rest but `known` is
// not used.
struct LogPosition {
  bool known = false;  // until the log has been read for the first time
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t offset = 0;  // of the first byte not yet read
  LogLine last = {};    // the last whole line; a log that has another in its place is another log
  LogLine begun = {};   // the line after it, as far as it is written
};

enum class ReportKind : int32_t {
  kPosition,   // nothing else to report up to here
  kChange,     // a line that changes a status
  kComplaint,  // the log cannot be read; the detail says why
};

// Every record holds the position that it leads to, so nothing is lost or counted twice whenever a
// reader dies.
struct LogReport {
  LogPosition position;
  ReportKind kind;
  int32_t level;
  char application[runtime::kMaxApplicationBytes + 1];
  char detail[kMaxDetailBytes + 1];
};
// Written and read as a whole.
static_assert(sizeof(LogReport) <= PIPE_BUF);

}  // namespace tarviod

#endif
