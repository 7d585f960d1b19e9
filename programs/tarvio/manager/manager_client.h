// Requests to the resident manager.
#ifndef TARVIO_CLIENT_MANAGER_MANAGER_CLIENT_H
#define TARVIO_CLIENT_MANAGER_MANAGER_CLIENT_H

#include <string>
#include <vector>

#include "manager/manager_reply.h"

namespace client {

struct Answer {
  int error = 0;      // errno value of what broke the exchange off; 0 at a clean end
  std::string bytes;  // what came
};

// Sends a request, with a name when that is not null, and reads the reply to its end. Throws a
// Failure when no manager can be reached, of kNoManager when there is none, and of kTimeout when
// the whole takes longer than a positive number of seconds.
Answer ask_manager(const char* command, const char* name, double timeout_seconds);

// All statuses that a command asks for. Throws a Failure for anything but a whole reply.
std::vector<Status> ask_statuses(const char* command, double timeout_seconds);

// What broke the exchange off, for people; empty after a clean end.
std::string broken_off(const Answer& answer);
inline constexpr char kTruncated[] =
    "the manager's reply is truncated or garbled; statuses may be missing";

}  // namespace client

#endif
