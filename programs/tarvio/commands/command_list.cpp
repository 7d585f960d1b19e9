#include "commands/command_list.h"

#include <algorithm>

#include "program.h"

namespace client {

std::span<const Command* const> all_commands() { return kProgram.commands; }

const Command* find_command(std::string_view word) {
  const auto commands = all_commands();
  const auto found = std::find_if(commands.begin(), commands.end(),
                                  [word](const Command* each) { return each->word == word; });
  return found == commands.end() ? nullptr : *found;
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
