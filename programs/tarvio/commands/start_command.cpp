// tarvio start
#include "commands/app_request.h"
#include "commands/commands.h"

namespace client {

constexpr Command kStartCommand = {
    .word = "start",
    .operands = kOneApplication,
    .options = {},
    .timeout = kManagerTimeout,
    .summary = "start an application",
    .description =
        "Starts an application. One that is already started stays as it is. A start succeeds once "
        "a process exists, whether or not its program runs well.",
    .statuses = kManagerStatuses,
    .run =
        [](const Arguments& arguments) {
          return request_app({.command = "start_app", .verb = "start", .done = "started"},
                             arguments);
        },
};

}  // namespace client
