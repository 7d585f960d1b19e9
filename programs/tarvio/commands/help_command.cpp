// tarvio help
#include <string>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "commands/help.h"
#include "terminal/json.h"

namespace client {

namespace {

Result run(const Arguments& arguments) {
  const Command* command = nullptr;
  if (!arguments.operands.empty()) {
    const std::string& word = arguments.operands.front();
    command = find_command(word);
    if (command == nullptr) throw UsageError("unknown command '" + word + "'");
  }
  const std::string help = help_of(command);
  return {.text = help, .json = text_of({{"help", help}})};
}

}  // namespace

constexpr Command kHelpCommand = {
    .word = "help",
    .operands = {.name = "COMMAND", .max = 1, .offer = Offer::kCommands},
    .options = {},
    .timeout = kNoTimeout,
    .summary = "print the help of the program or of a command",
    .description = "Prints what the program, or the command, prints with --help.",
    .statuses = "0 done, 1 failed",
    .run = run,
};

}  // namespace client
