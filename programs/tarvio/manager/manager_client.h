// Questions to the resident manager.
#ifndef TARVIO_CLIENT_MANAGER_MANAGER_CLIENT_H
#define TARVIO_CLIENT_MANAGER_MANAGER_CLIENT_H

#include <string>

namespace client {

struct Answer {
  bool manager_found = false;
  int error = 0;      // errno value of what broke the exchange off; 0 at a clean end
  std::string bytes;  // what came
};

// Sends a request, with a name when that is not null, and reads the reply to its end. When that
// takes longer than a positive number of seconds, the process says so and ends with kTimeout,
// whatever it is waiting for.
Answer ask_manager(const char* command, const char* name, double timeout_seconds);

// Complains about an exchange that did not come to a clean end. Returns the exit status that it
// calls for: kDone for a clean one.
int report_exchange(const Answer& answer);

}  // namespace client

#endif
