#include "commands/commands.h"

#include <algorithm>
#include <array>

#include "commands/arguments.h"
#include "manager/manager_client.h"
#include "manager/manager_state.h"
#include "program.h"
#include "tarvio/log.h"

namespace client {

namespace {

constexpr std::array kCommands = {
    &kStatusCommand,  &kStartCommand,     &kStopCommand,    &kRestartCommand, &kStartAllCommand,
    &kStopAllCommand, &kIsRunningCommand, &kWaitCommand,    &kLogsCommand,    &kMetricsCommand,
    &kRefreshCommand, &kListCommand,      &kInstallCommand, &kRemoveCommand,  &kFilesCommand,
    &kCheckCommand,   &kInspectCommand,   &kPackCommand,    &kKeygenCommand,  &kSignCommand,
    &kVerifyCommand,  &kAreasCommand,     &kBackupCommand,  &kRestoreCommand, &kDoctorCommand,
    &kHelpCommand,
};
// The build counts the files.
static_assert(kCommands.size() == TARVIO_COMMAND_FILES,
              "the list of commands and the files *_command.cpp differ");

// A command that is listed twice would hide one that is not.
constexpr bool is_each_listed_once() {
  for (auto at = kCommands.begin(); at != kCommands.end(); ++at) {
    if (std::find(kCommands.begin(), at, *at) != at) return false;
  }
  return true;
}
static_assert(is_each_listed_once());

constexpr int kSilent = 4;  // the client itself reports what the library would log

void prepare(const Arguments& arguments) {
  tq_set_log_level(kSilent);
  if (!arguments.has(kWaitManager)) return;
  const double seconds = arguments.seconds_of(kWaitManager, 0);
  if (arguments.command->need == Need::kState) {
    await_state(seconds);
  } else {
    await_manager(seconds);
  }
}

}  // namespace

constexpr Program kProgram = {
    .name = "tarvio",
    .purpose =
        "Shows the states of this device's applications and starts and stops them through the "
        "resident manager tarviod; works on packages and package files; saves and restores the "
        "flash memory.",
    .commands = kCommands,
    .statuses = kManagerStatuses,
    .note = "(status NAME: the state of the application, see there)\n",
    .prepare = prepare,
};

}  // namespace client
