// The journal in place of a log file.
#ifndef TARVIOD_JOURNAL_H
#define TARVIOD_JOURNAL_H

#include "log_reporter.h"

namespace tarviod {

// Reports what is new in the journal until the manager is gone.
//
// pause_ms  until journalctl, which prints it, is started again when it has ended.
void follow_journal(LogReporter& reporter, int pause_ms);

}  // namespace tarviod

#endif
