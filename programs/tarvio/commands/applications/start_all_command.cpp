// tarvio start-all
#include "commands/applications/app_request.h"
#include "commands/commands.h"

namespace client {

constexpr Command kStartAllCommand = {
    .word = "start-all",
    .operands = kNoOperands,
    .options = {},
    .timeout = kAllTimeout,
    .need = Need::kAnswer,
    .summary = "start all applications",
    .description =
        "Starts all applications, one after the other. The manager answers no other request "
        "meanwhile.",
    .statuses = kManagerStatuses,
    .run = [](const Arguments& arguments) { return request_all(kStartApp, arguments); },
};

}  // namespace client
