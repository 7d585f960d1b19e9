// tarvio start-all
#include "commands/app_request.h"
#include "commands/commands.h"

namespace client {

constexpr Command kStartAllCommand = {
    .word = "start-all",
    .operands = kNoOperands,
    .options = {},
    .timeout = kManagerTimeout,
    .summary = "start all applications",
    .description =
        "Starts all applications, one after the other. The manager retries each until it has "
        "started, and answers no other request meanwhile.",
    .statuses = kManagerStatuses,
    .run =
        [](const Arguments& arguments) {
          return request_app({.command = "start_all", .verb = "start", .done = "started"},
                             arguments);
        },
};

}  // namespace client
