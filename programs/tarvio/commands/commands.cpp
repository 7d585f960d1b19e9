#include "commands/commands.h"

#include <algorithm>
#include <array>

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

}  // namespace

std::span<const Command* const> all_commands() { return kCommands; }

const Command* find_command(std::string_view word) {
  const auto* const found =
      std::find_if(kCommands.begin(), kCommands.end(),
                   [word](const Command* each) { return each->word == word; });
  return found == kCommands.end() ? nullptr : *found;
}

std::vector<Option> options_of(const Command* command) {
  if (command == nullptr) {
    Option timeout = kNoTimeout.option;
    timeout.help = "give up when it takes longer; 0 waits forever";
    return {kJson, kQuiet, timeout, kHelp, kVersion};
  }
  std::vector<Option> options(command->options.begin(), command->options.end());
  Option version = kVersion;
  version.help = nullptr;  // the help of the program shows it
  options.insert(options.end(), {kJson, kQuiet, command->timeout.option});
  if (command->need != Need::kNothing) options.push_back(kWaitManager);
  options.insert(options.end(), {kHelp, version});
  return options;
}

}  // namespace client
