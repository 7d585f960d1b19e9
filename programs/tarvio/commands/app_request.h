// What the commands that start and stop applications share.
#ifndef TARVIO_CLIENT_COMMANDS_APP_REQUEST_H
#define TARVIO_CLIENT_COMMANDS_APP_REQUEST_H

#include <string>

#include "commands/arguments.h"

namespace client {

struct AppRequest {
  const char* command;  // in the manager's words
  const char* verb;     // for people: "start"
  const char* done;     // and when it is done: "started"
};

// Sends the request, with the operand for a name where there is one.
Result request_app(const AppRequest& request, const Arguments& arguments);

// The operand, when the manager would read it as it stands. Throws UsageError.
std::string application_name(const std::string& operand);

}  // namespace client

#endif
