// tarvio stop
#include <string>

#include "commands/applications/app_request.h"
#include "commands/commands.h"

namespace client {

namespace {

Result run(const Arguments& arguments) {
  const std::string name = application_name(arguments.operands.front());
  const Reached reached =
      reach_app(kStopApp, name, arguments.has(kMatch), arguments.timeout_seconds);
  return result_of(kStopApp, reached, arguments);
}

}  // namespace

constexpr Command kStopCommand = {
    .word = "stop",
    .operands = kOneApplication,
    .options = kMatchOptions,
    .timeout = kManagerTimeout,
    .need = Need::kAnswer,
    .summary = "stop an application",
    .description =
        "Stops an application, and returns when its last process has ended. One that is already "
        "stopped stays as it is.",
    .statuses = kManagerStatuses,
    .run = run,
};

}  // namespace client
