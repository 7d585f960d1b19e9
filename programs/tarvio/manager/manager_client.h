// Requests to the resident manager.
#ifndef TARVIO_CLIENT_MANAGER_MANAGER_CLIENT_H
#define TARVIO_CLIENT_MANAGER_MANAGER_CLIENT_H

#include <functional>
#include <string>
#include <vector>

#include "manager/manager_reply.h"
#include "process/failure.h"

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

// The bytes of a reply that came to its end. Throws as ask_manager, and when it was broken off.
std::string ask_whole(const char* command, double timeout_seconds);

// The version of the manager; empty for one that does not know the request. Throws as ask_whole.
std::string ask_version(double timeout_seconds);

// What broke the exchange off, for people; empty after a clean end.
std::string broken_off(const Answer& answer);
inline constexpr char kTruncated[] =
    "the manager's reply is truncated or garbled; statuses may be missing";

// That no manager answers.
Failure no_manager();

// Whether a manager listens now, even if it is busy or may not be used. Throws a Failure when that
// cannot be found out.
bool is_manager_there();

// Waits until one does. At the end of the time it is the request that fails.
void await_manager(double seconds);

// Waits until the condition holds, by looking again and again, for a positive number of seconds at
// most.
void await(const std::function<bool()>& condition, double seconds);

}  // namespace client

#endif
