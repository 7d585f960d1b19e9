// tarvio stop-all
#include "commands/applications/app_request.h"
#include "commands/commands.h"

namespace client {

constexpr Command kStopAllCommand = {
    .word = "stop-all",
    .operands = kNoOperands,
    .options = {},
    .timeout = kAllTimeout,
    .need = Need::kAnswer,
    .summary = "stop all applications",
    .description =
        "Stops all applications, one after the other. The manager answers no other request "
        "meanwhile.",
    .statuses = kManagerStatuses,
    .run = [](const Arguments& arguments) { return request_all(kStopApp, arguments); },
};

}  // namespace client
