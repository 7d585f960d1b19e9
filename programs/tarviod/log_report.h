// What the log reader tells the manager: one record after another over a pipe.
#ifndef TARVIOD_LOG_REPORT_H
#define TARVIOD_LOG_REPORT_H

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

#include "config.h"

namespace tarviod {

inline constexpr size_t kMostDetailBytes = 200;
inline constexpr size_t kMostLineBytes = 512;  // of a line; the rest of it does not count
inline constexpr size_t kPieceSize = 255;      // as tq_log_read makes them, with the zero

// Up to where the log counts as read.
struct LogPosition {
  bool known;  // false until the log was read for the first time
  uint64_t device;
  uint64_t file;
  uint64_t size_bytes;
  uint64_t pieces;             // lines, or pieces of lines, that are read
  char last[kPieceSize];       // the last of them
  char begun[kMostLineBytes];  // the line behind it, as far as it is written; empty when there is
                               // none
};

enum class ReportKind : int32_t {
  kPosition,  // so far and no further
  kChange,    // a line that changes a status, and the position behind it
  kDone,      // the reader has read often enough and ends
};

// Every record tells the position that it leads to. So nothing is lost or counted twice, whenever a
// reader dies.
struct LogReport {
  LogPosition position;
  ReportKind kind;
  int32_t level;
  char application[kMostApplicationBytes + 1];
  char detail[kMostDetailBytes + 1];
};
// Written and read as a whole.
static_assert(sizeof(LogReport) <= PIPE_BUF);

}  // namespace tarviod

#endif
