// The commands of tarvio-fleet, and what they share.
#ifndef TARVIO_FLEET_TOOL_FLEET_COMMANDS_H
#define TARVIO_FLEET_TOOL_FLEET_COMMANDS_H

#include "commands/command.h"
#include "commands/command_list.h"
#include "fleet_settings.h"

namespace client {

extern const Command kDevicesCommand;
extern const Command kBoardStatusCommand;
extern const Command kFleetStartCommand;
extern const Command kFleetStopCommand;
extern const Command kFleetRestartCommand;
extern const Command kRolloutCommand;
extern const Command kResumeCommand;
extern const Command kHistoryCommand;
extern const Command kHelpCommand;

}  // namespace client

namespace fleet_tool {

inline constexpr client::Option kTo = {.name = "to",
                                       .value = "EXPR",
                                       .offer = client::Offer::kBoards,
                                       .help = "the boards that are meant",
                                       .is_required = true};

inline constexpr client::Timeout kBrokerTimeout = {
    30, client::timeout_option("give up when the broker has not sent everything by then; default "
                               "30, 0 waits forever")};

inline constexpr char kFleetStatuses[] =
    "0 done, 1 failed for one or more, 5 no answer in time, 12 no board is meant";

}  // namespace fleet_tool

#endif
