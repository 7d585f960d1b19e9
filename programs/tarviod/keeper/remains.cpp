#include "remains.h"

#include <poll.h>
#include <signal.h>
#include <stdio.h>

#include <span>

#include "base/deadline.h"
#include "ledger.h"
#include "process_table.h"
#include "runtime/run_paths.h"

namespace tarviod {

namespace {

using tarvio::Deadline;

constexpr int kTerminateMs = 2000;
constexpr int kKillMs = 2000;
constexpr int kMaxDoubtMs = 500;
constexpr int kPauseMs = 10;  // these are children of others, so nothing reports their end

// Whether one may be left.
bool send_to_all(const RecordList<LedgerEntry>& entries, int signal, bool doubts_count) {
  ProcessTable table;
  if (!table.read()) return true;
  int count = 0;
  for (const LedgerEntry& entry : entries) {
    count += table.send(entry.application, std::span(&entry.leader, 1), signal);
  }
  return count > 0 || (doubts_count && table.is_in_doubt());
}

// repeated  the signal for what has not ended after the first one; 0 for none.
bool end_by(const RecordList<LedgerEntry>& entries, int signal, int repeated, int wait_ms) {
  const Deadline until = Deadline::after(wait_ms);
  // Some process of others may have no environment to be known by, for ever.
  const Deadline doubt_end = Deadline::after(kMaxDoubtMs);
  for (int next = signal; send_to_all(entries, next, !doubt_end.passed()); next = repeated) {
    if (until.passed()) return false;
    (void)poll(nullptr, 0, kPauseMs);
  }
  return true;
}

}  // namespace

bool end_remains() {
  RecordList<LedgerEntry> named;
  RecordList<LedgerEntry> unknown;
  const bool is_whole = read_ledger(named);
  if (LedgerEntry* const any = unknown.append()) any->application[0] = kAnyApplication[0];
  const RecordList<LedgerEntry>& entries = is_whole ? named : unknown;
  if (!end_by(entries, SIGTERM, 0, kTerminateMs)) {
    (void)end_by(entries, SIGKILL, SIGKILL, kKillMs);
  }
  (void)remove(runtime::kLedgerPath);  // an empty directory, too
  return is_whole;
}

}  // namespace tarviod
