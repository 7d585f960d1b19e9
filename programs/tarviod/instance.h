// Being the only manager of the device.
#ifndef TARVIOD_INSTANCE_H
#define TARVIOD_INSTANCE_H

namespace tarviod {

// Creates the socket's directory where it is missing, makes sure that no other manager answers or
// is about to, and removes what one left behind. Says on standard error what stands in the way.
//
// Returns a descriptor that keeps other managers from starting until it is closed, or -1.
int claim_instance();

}  // namespace tarviod

#endif
