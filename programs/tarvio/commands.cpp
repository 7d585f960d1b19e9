#include "commands.h"

#include <algorithm>
#include <array>

#include "help.h"

namespace client {

namespace {

constexpr char kApplicationName[] = "NAME of the application";

constexpr std::array<CommandRow, 6> kCommands = {{
    {"status", Command::kStatus, Operands::kOptional, kApplicationName, OptionSet(Option::kApps),
     kStatusHelp},
    {"start", Command::kStart, Operands::kOne, kApplicationName, OptionSet(), kStartHelp},
    {"stop", Command::kStop, Operands::kOne, kApplicationName, OptionSet(), kStopHelp},
    {"start-all", Command::kStartAll, Operands::kNone, nullptr, OptionSet(), kStartAllHelp},
    {"stop-all", Command::kStopAll, Operands::kNone, nullptr, OptionSet(), kStopAllHelp},
    {"list", Command::kList, Operands::kNone, nullptr,
     OptionSet(Option::kCategory, Option::kSubcategory, Option::kName), kListHelp},
}};

}  // namespace

const CommandRow* find_command(std::string_view word) {
  const auto* const row =
      std::find_if(kCommands.begin(), kCommands.end(),
                   [word](const CommandRow& command) { return command.word == word; });
  return row == kCommands.end() ? nullptr : row;
}

const char* help_of(Command command) {
  const auto* const row =
      std::find_if(kCommands.begin(), kCommands.end(),
                   [command](const CommandRow& each) { return each.command == command; });
  return row == kCommands.end() ? kGeneralHelp : row->help;
}

}  // namespace client
