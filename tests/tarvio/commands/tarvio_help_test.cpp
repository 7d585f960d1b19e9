// The client's help, and its manual page, which must name the same things.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "commands/commands.h"
#include "commands/help.h"
#include "commands/manual.h"
#include "process/failure.h"
#include "support/files.h"
#include "support/programs/tarvio.h"

namespace client {
namespace {

using tarvio_test::Ran;
using tarvio_test::run_tarvio;
using testing::HasSubstr;
using testing::StartsWith;

TEST(ClientHelp, IsThereForTheProgramAndForEachCommand) {
  const std::string general = run_tarvio({"--help"}).output;
  EXPECT_EQ(general, help_of(nullptr));
  EXPECT_THAT(general, StartsWith("usage: tarvio COMMAND"));
  EXPECT_EQ(run_tarvio({"-h"}).output, general);
  for (const Command* command : all_commands()) {
    const Ran run = run_tarvio({command->word, "--help"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.output, help_of(command));
    EXPECT_THAT(run.output, StartsWith("usage: tarvio " + usage_of(*command) + " [OPTION]...\n"));
    EXPECT_EQ(run_tarvio({"--help", command->word}).output, run.output);
    EXPECT_THAT(general, HasSubstr("\n  " + usage_of(*command))) << "the list of commands";
  }
}

TEST(ClientHelp, IsACommandToo) {
  EXPECT_EQ(run_tarvio({"help"}).output, help_of(nullptr));
  for (const Command* command : all_commands()) {
    EXPECT_EQ(run_tarvio({"help", command->word}).output, help_of(command));
  }
  const Ran run = run_tarvio({"help", "reboot"});
  EXPECT_EQ(run.status, kUsage);
  EXPECT_EQ(run.errors, "tarvio: unknown command 'reboot'; try 'tarvio help --help'\n");
}

TEST(ClientHelp, WinsOverWhatIsWrong) {
  for (const std::vector<std::string>& line :
       {std::vector<std::string>{"start", "--bogus", "--help"},
        {"start", "a", "b", "-h"},
        {"--help", "start", "--timeout"},
        {"-h", "start", "--apps"},
        {"start", "-Vh"}}) {
    const Ran run = run_tarvio(line);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, help_of(&kStartCommand));
  }
}

TEST(ClientHelp, HasTheUsageOfACommand) {
  EXPECT_EQ(usage_of(kStatusCommand), "status [NAME]");
  EXPECT_EQ(usage_of(kStartAllCommand), "start-all");
  EXPECT_EQ(usage_of(kInstallCommand), "install FILE...");
  EXPECT_EQ(usage_of(kPackCommand), "pack DIR -o FILE");
  EXPECT_EQ(usage_of(kWaitCommand), "wait NAME --state STATE");
  EXPECT_EQ(usage_of(kBackupCommand), "backup AREA... --to FILE");
}

TEST(ClientHelp, NamesEveryOption) {
  for (const Command* command : all_commands()) {
    const std::string help = help_of(command);
    for (const Option& option : options_of(command)) {
      const bool is_shown = help.find(" --" + std::string(option.name)) != std::string::npos;
      EXPECT_EQ(is_shown, option.help != nullptr) << command->word << " --" << option.name;
    }
    EXPECT_THAT(help, HasSubstr("exit status: 0 ")) << command->word;
    EXPECT_THAT(help, HasSubstr(", 64")) << command->word;
  }
  EXPECT_THAT(help_of(&kPackCommand), HasSubstr("\n  -o, --output FILE      the package file"));
  EXPECT_THAT(help_of(&kStartCommand), HasSubstr("\n      --wait-manager[=SECONDS]\n"));
}

TEST(ClientHelp, NamesTheDefaultTimeout) {
  for (const Command* command : all_commands()) {
    if (command->timeout.option.help == nullptr) continue;
    const int seconds = static_cast<int>(command->timeout.seconds);
    EXPECT_THAT(command->timeout.option.help, HasSubstr("default " + std::to_string(seconds) + ","))
        << command->word;
  }
}

TEST(ClientHelp, FitsATerminalOf80Columns) {
  std::string all = help_of(nullptr);
  for (const Command* command : all_commands()) all += help_of(command);
  EXPECT_FALSE(std::regex_search(all, std::regex("[^\n]{80}")));
  EXPECT_FALSE(std::regex_search(all, std::regex(" \n")));
}

TEST(ClientHelp, SaysHowANameIsMatched) {
  for (const Command* command : {&kStartCommand, &kStopCommand}) {
    EXPECT_THAT(help_of(command), HasSubstr("NAME must be exact, unless --match is given"));
  }
}

TEST(ClientManual, ShowsTheUsageOfEveryCommand) { expect_usage_of_every_command(); }

TEST(ClientManual, HasAnEntryForEveryCommand) { expect_entry_for_every_command(); }

TEST(ClientManual, HasAnEntryForEveryOptionAndForNoOther) { expect_entry_for_every_option(); }

TEST(ClientManual, HasAnEntryForEveryExitStatus) {
  expect_entries_for_statuses({kDone, kFailed, kNoManager, kUnknown, kTimeout, kNotTrusted,
                               kStateWarning, kStateError, kNoMatch, kUsage});
}

}  // namespace
}  // namespace client
