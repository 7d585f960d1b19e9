// The signals that end the manager, as events of a descriptor.
#ifndef TARVIOD_SIGNALS_H
#define TARVIOD_SIGNALS_H

namespace tarviod {

// Catches SIGTERM and SIGINT, and takes the sting out of SIGPIPE. Handlers, not a blocked or
// ignored signal: those would pass on to the applications that are started.
//
// Returns a descriptor that becomes readable with one byte per signal, or -1 with errno.
int catch_signals();

}  // namespace tarviod

#endif
