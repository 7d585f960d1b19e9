// Requests of the manager to itself. They go through the socket like everybody's, so that the com
// server serialises them with the clients'.
#ifndef TARVIOD_OWN_REQUEST_H
#define TARVIOD_OWN_REQUEST_H

namespace tarviod {

inline constexpr int kNoAnswer = -1;

// Sends a command to the socket at a path, on a thread of its own, because both connecting and the
// answer may take long. Both strings have static lifetime.
//
// Returns a descriptor that becomes readable when the answer is there (see take_answer), or -1 with
// errno.
int begin_request(const char* path, const char* command);

// Takes the result code of a request, or kNoAnswer, and closes the descriptor. Waits if it must.
int take_answer(int fd);

}  // namespace tarviod

#endif
