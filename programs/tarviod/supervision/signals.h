// The signals that the manager handles, as events of a descriptor.
#ifndef TARVIOD_SIGNALS_H
#define TARVIOD_SIGNALS_H

#include "base/owners.h"

namespace tarviod {

// Catches SIGTERM, SIGINT and, unless it is ignored, SIGHUP, and ignores SIGPIPE, all by handlers:
// a blocked or ignored signal would pass on to the processes that are started.
//
// Returns a descriptor that becomes readable with each signal; not valid, with errno, when
// that failed.
tarvio::Fd catch_signals();

// The number of the next signal; 0 for a SIGTERM or SIGINT that repeats the one before within a
// second, since timeout(1) sends each to the process and to its group.
int read_signal(int signal_fd);

}  // namespace tarviod

#endif
