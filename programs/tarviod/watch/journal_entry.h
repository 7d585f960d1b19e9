// An entry of the journal as journalctl prints it: one JSON object in a line.
#ifndef TARVIOD_JOURNAL_ENTRY_H
#define TARVIOD_JOURNAL_ENTRY_H

#include <string_view>

#include "runtime/log_form.h"

namespace tarviod {

// The fields that journalctl is asked for; it adds the cursor.
inline constexpr char kJournalFields[] =
    "PRIORITY,SYSLOG_FACILITY,SYSLOG_IDENTIFIER,SYSLOG_PID,MESSAGE,_COMM,_PID";

struct JournalEntry {
  std::string_view cursor;
  runtime::LogMessage message;
};

// Takes a line apart in place; the entry points into it. False when the line is damaged or lacks
// the cursor.
bool parse_entry(char* line, JournalEntry& entry);

}  // namespace tarviod

#endif
