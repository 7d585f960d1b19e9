#include "commands/commands.h"

#include <algorithm>
#include <array>

#include "commands/help.h"

namespace client {

namespace {

// An installation may take its time, and is not to be broken off lightly.
constexpr double kForManager = 30;
constexpr double kForTools = 600;
constexpr double kForFlash = 0;  // it takes as long as it takes

constexpr std::array<CommandRow, 15> kCommands = {{
    {"status", Command::kStatus, Operands::kOptionalApplication,
     OptionSet(Option::kApps, Option::kWatch), kForManager, kStatusHelp},
    {"start", Command::kStart, Operands::kApplication, OptionSet(), kForManager, kStartHelp},
    {"stop", Command::kStop, Operands::kApplication, OptionSet(), kForManager, kStopHelp},
    {"start-all", Command::kStartAll, Operands::kNone, OptionSet(), kForManager, kStartAllHelp},
    {"stop-all", Command::kStopAll, Operands::kNone, OptionSet(), kForManager, kStopAllHelp},
    {"list", Command::kList, Operands::kNone,
     OptionSet(Option::kCategory, Option::kSubcategory, Option::kName), kForManager, kListHelp},
    {"install", Command::kInstall, Operands::kFiles, OptionSet(Option::kForce), kForTools,
     kInstallHelp},
    {"remove", Command::kRemove, Operands::kPackages, OptionSet(Option::kForce), kForTools,
     kRemoveHelp},
    {"files", Command::kFiles, Operands::kPackages, OptionSet(), kForTools, kFilesHelp},
    {"check", Command::kCheck, Operands::kFiles, OptionSet(), kForTools, kCheckHelp},
    {"inspect", Command::kInspect, Operands::kFiles, OptionSet(), kForTools, kInspectHelp},
    {"pack", Command::kPack, Operands::kDirectory, OptionSet(Option::kOutput), kForTools,
     kPackHelp},
    {"areas", Command::kAreas, Operands::kNone, OptionSet(), kForManager, kAreasHelp},
    {"backup", Command::kBackup, Operands::kAreas,
     OptionSet(Option::kTo, Option::kWorkDirectory, Option::kOverwrite, Option::kVerify,
               Option::kNoVerify, Option::kQuiet),
     kForFlash, kBackupHelp},
    {"restore", Command::kRestore, Operands::kFile,
     OptionSet(Option::kWorkDirectory, Option::kYes, Option::kForce, Option::kVerify,
               Option::kNoVerify, Option::kQuiet),
     kForFlash, kRestoreHelp},
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
