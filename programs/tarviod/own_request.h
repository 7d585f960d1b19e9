// Requests of the manager to itself. They go through the socket like everybody's, so that the com
// server serialises them with the clients'.
#ifndef TARVIOD_OWN_REQUEST_H
#define TARVIOD_OWN_REQUEST_H

#include "base/owners.h"

namespace tarviod {

inline constexpr int kNoAnswer = -1;

// Sends a command to the socket at a path, on a thread of its own, because both connecting and the
// answer may take long. Both strings have static lifetime.
//
// Returns a descriptor that becomes readable when the answer is there (see read_answer); not
// valid, with errno, when there is no thread.
tarvio::Fd send_request(const char* path, const char* command);

// The result code of a request, or kNoAnswer. Waits for it if it must.
int read_answer(const tarvio::Fd& answer);

}  // namespace tarviod

#endif
