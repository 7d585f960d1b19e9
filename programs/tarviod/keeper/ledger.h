// The file that says which processes are the keeper's, for the manager that finds it dead.
#ifndef TARVIOD_LEDGER_H
#define TARVIOD_LEDGER_H

#include "keeper/protocol.h"
#include "keeper/record_list.h"
#include "runtime/growing_text.h"

namespace tarviod {

// Writes the file, which is replaced as a whole.
class LedgerWriter {
 public:
  // Begins with the keeper itself, which is the calling process.
  LedgerWriter();
  LedgerWriter(const LedgerWriter&) = delete;
  LedgerWriter& operator=(const LedgerWriter&) = delete;
  // A process of an application, at the head of its session.
  void add(const char* application, const runtime::ProcessId& leader);
  // To be called once. False, with errno, when something could not be written: the file is as it
  // was then.
  bool finish();

 private:
  runtime::GrowingText text_;
  int error_ = 0;
};

struct LedgerEntry {
  LedgerEntry* next = nullptr;
  runtime::ProcessId leader;
  char application[kMaxNameBytes + 1] = "";  // "" for the keeper
};

// Reads the file; without entries when there is none, or only one of an earlier boot. False when it
// cannot be read or is not whole.
bool read_ledger(RecordList<LedgerEntry>& entries);

}  // namespace tarviod

#endif
