// Single-instance guard.
#ifndef TARVIOD_INSTANCE_H
#define TARVIOD_INSTANCE_H

#include "base/owners.h"

namespace tarviod {

// Creates the socket's directory where it is missing, makes sure that no other manager runs, and
// removes a stale socket. Says on standard error what stands in the way.
//
// Returns a descriptor that keeps other managers from starting as long as it is open, whatever
// becomes of the socket; not valid when this one may not start.
tarvio::Fd claim_instance();

}  // namespace tarviod

#endif
