// The signals that the manager heeds, as events of a descriptor.
#ifndef TARVIOD_SIGNALS_H
#define TARVIOD_SIGNALS_H

namespace tarviod {

// Catches SIGTERM, SIGINT and, unless it is ignored, SIGHUP, and takes the sting out of SIGPIPE.
// Handlers, not a blocked or ignored signal: those would pass on to the applications that are
// started.
//
// Returns a descriptor that becomes readable with each signal, or -1 with errno.
int catch_signals();

// Takes the number of a signal.
int take_signal(int signal_fd);

}  // namespace tarviod

#endif
