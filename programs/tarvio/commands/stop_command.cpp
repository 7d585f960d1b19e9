// tarvio stop
#include "commands/app_request.h"
#include "commands/commands.h"

namespace client {

constexpr Command kStopCommand = {
    .word = "stop",
    .operands = kOneApplication,
    .options = {},
    .timeout = kManagerTimeout,
    .summary = "stop an application",
    .description = "Stops an application. One that is already stopped stays as it is.",
    .statuses = kManagerStatuses,
    .run =
        [](const Arguments& arguments) {
          return request_app({.command = "stop_app", .verb = "stop", .done = "stopped"}, arguments);
        },
};

}  // namespace client
