#include "fleet_commands.h"

#include <array>

#include "program.h"

namespace client {

namespace {

constexpr std::array kCommands = {
    &kDevicesCommand,   &kBoardStatusCommand,  &kFleetStartCommand,
    &kFleetStopCommand, &kFleetRestartCommand, &kRolloutCommand,
    &kResumeCommand,    &kHistoryCommand,      &kHelpCommand,
};

}  // namespace

constexpr Program kProgram = {
    .name = "tarvio-fleet",
    .purpose =
        "Shows the boards of a fleet and their applications, starts and stops these, and installs "
        "packages on many boards, wave after wave, through an MQTT broker to which the "
        "tarvio-agent of each board is connected.",
    .commands = kCommands,
    .statuses = fleet_tool::kFleetStatuses,
    .note = "",
    .prepare = [](const Arguments&) {},
};

}  // namespace client
