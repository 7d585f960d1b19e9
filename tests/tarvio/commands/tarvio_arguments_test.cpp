// The client's command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "support/programs/tarvio.h"

namespace client {
namespace {

using tarvio_test::Ran;
using tarvio_test::run_tarvio;

using Line = std::vector<std::string>;

// The arguments of a line that is right.
Arguments arguments_of(const Line& line) {
  std::vector<const char*> argv = {"tarvio"};
  for (const std::string& argument : line) argv.push_back(argument.c_str());
  Arguments arguments = read_arguments(static_cast<int>(argv.size()), argv.data());
  EXPECT_EQ(arguments.wrong, "");
  EXPECT_NO_THROW(check_arguments(arguments));
  return arguments;
}

bool has(const Arguments& arguments, const char* option) { return arguments.has({.name = option}); }

// The value of an option that is given.
std::string value(const Arguments& arguments, const char* option) {
  const std::string* const given = arguments.value_of({.name = option});
  return given == nullptr ? "not given" : *given;
}

// What the program says of a line that is wrong.
std::string complaint_of(const Line& line) {
  const Ran run = run_tarvio(line);
  EXPECT_EQ(run.status, 64);
  EXPECT_EQ(run.output, "");
  EXPECT_THAT(run.errors, testing::AllOf(testing::StartsWith("tarvio: "), testing::EndsWith("\n")));
  return run.errors.substr(8, run.errors.size() - 9);
}

struct Wrong {
  Line line;
  std::string complaint;
};

void expect_complaints(const std::vector<Wrong>& cases) {
  for (const Wrong& each : cases) EXPECT_EQ(complaint_of(each.line), each.complaint);
}

const std::vector<std::pair<const Command*, Line>> kShortestLines = {
    {&kStatusCommand, {"status"}},
    {&kStartCommand, {"start", "clock"}},
    {&kStopCommand, {"stop", "clock"}},
    {&kRestartCommand, {"restart", "clock"}},
    {&kStartAllCommand, {"start-all"}},
    {&kStopAllCommand, {"stop-all"}},
    {&kIsRunningCommand, {"is-running", "clock"}},
    {&kWaitCommand, {"wait", "clock", "--state", "running"}},
    {&kLogsCommand, {"logs"}},
    {&kMetricsCommand, {"metrics"}},
    {&kRefreshCommand, {"refresh"}},
    {&kListCommand, {"list"}},
    {&kInstallCommand, {"install", "x.tbx"}},
    {&kRemoveCommand, {"remove", "clock"}},
    {&kFilesCommand, {"files", "clock"}},
    {&kCheckCommand, {"check", "x.tbx"}},
    {&kInspectCommand, {"inspect", "x.tbx"}},
    {&kPackCommand, {"pack", "x", "-o", "x.tbx"}},
    {&kKeygenCommand, {"keygen", "x"}},
    {&kSignCommand, {"sign", "x.tbx", "--key", "x.key"}},
    {&kVerifyCommand, {"verify", "x.tbx"}},
    {&kAreasCommand, {"areas"}},
    {&kBackupCommand, {"backup", "kernel", "--to", "x.tbx"}},
    {&kRestoreCommand, {"restore", "x.tbx"}},
    {&kDoctorCommand, {"doctor"}},
    {&kHelpCommand, {"help"}},
};

TEST(ClientArguments, KnowEveryCommand) {
  ASSERT_EQ(kShortestLines.size(), all_commands().size());
  for (size_t at = 0; at < kShortestLines.size(); ++at) {
    EXPECT_EQ(arguments_of(kShortestLines[at].second).command, kShortestLines[at].first);
    EXPECT_EQ(all_commands()[at], kShortestLines[at].first);
  }
}

TEST(ClientArguments, HaveDefaults) {
  const Arguments arguments = arguments_of({"status"});
  EXPECT_EQ(arguments.operands, Line());
  EXPECT_TRUE(arguments.options.empty());
  EXPECT_EQ(arguments.timeout_seconds, 30);
  EXPECT_EQ(arguments_of({"install", "x.tbx"}).timeout_seconds, 600);
  EXPECT_EQ(arguments_of({"restore", "x.tbx"}).timeout_seconds, 0);
}

// They may stand before the command, so reading them must not depend on it.
TEST(ClientArguments, MeanTheSameInEveryCommand) {
  for (const Command* command : all_commands()) {
    for (const Option& option : options_of(command)) {
      for (const Command* other : all_commands()) {
        for (const Option& another : options_of(other)) {
          const bool is_same_name = std::string(option.name) == another.name;
          const bool is_same_letter = option.letter != '\0' && option.letter == another.letter;
          if (!is_same_name && !is_same_letter) continue;
          EXPECT_STREQ(option.name, another.name);
          EXPECT_EQ(option.letter, another.letter) << option.name;
          EXPECT_STREQ(option.value, another.value) << option.name;
        }
      }
    }
  }
}

TEST(ClientArguments, StandBeforeOrAfterTheCommand) {
  for (const Line& line : {Line{"--timeout", "5", "--json", "start", "clock"},
                           Line{"start", "--timeout=5", "clock", "--json"},
                           Line{"--json", "start", "clock", "--timeout", "5"}}) {
    const Arguments arguments = arguments_of(line);
    EXPECT_EQ(arguments.command, &kStartCommand);
    EXPECT_EQ(arguments.operands, Line{"clock"});
    EXPECT_TRUE(has(arguments, "json"));
    EXPECT_EQ(arguments.timeout_seconds, 5);
  }
}

TEST(ClientArguments, TakeTheLastOfSeveralValues) {
  EXPECT_EQ(arguments_of({"--timeout", "5", "status", "--timeout", "7"}).timeout_seconds, 7);
  EXPECT_EQ(value(arguments_of({"list", "--category", "image", "--category", "other"}), "category"),
            "other");
}

TEST(ClientArguments, OfStatusMayBeForApplications) {
  EXPECT_TRUE(has(arguments_of({"status", "--apps"}), "apps"));
  EXPECT_FALSE(has(arguments_of({"status"}), "apps"));
  EXPECT_EQ(arguments_of({"status", "clock"}).operands, Line{"clock"});
}

TEST(ClientArguments, MayBeNamesThatLookLikeAnything) {
  for (const char* name :
       {"start", "status", "[a,b]", "{}", "a b", "@x", "/x", "-", "Ä", "%s", "%"}) {
    EXPECT_EQ(arguments_of({"start", name}).operands, Line{name});
  }
  EXPECT_EQ(arguments_of({"start", "--", "--json"}).operands, Line{"--json"});
  EXPECT_FALSE(has(arguments_of({"start", "--", "--json"}), "json"));
  EXPECT_EQ(arguments_of({"--", "start", "clock"}).operands, Line{"clock"});
}

TEST(ClientArguments, MayBeSeveralPackageFiles) {
  const Arguments arguments = arguments_of({"inspect", "a.tbx", "--json", "b c.tbx", "--", "-x"});
  EXPECT_EQ(arguments.operands, (Line{"a.tbx", "b c.tbx", "-x"}));
  EXPECT_EQ(arguments_of({"inspect", "a.tbx", "--timeout", "1"}).timeout_seconds, 1);
}

TEST(ClientArguments, OfAChangeMayForceIt) {
  for (const char* command : {"install", "remove"}) {
    EXPECT_TRUE(has(arguments_of({command, "clock", "--force"}), "force"));
    EXPECT_FALSE(has(arguments_of({command, "clock"}), "force"));
  }
  EXPECT_EQ(complaint_of({"files", "clock", "--force"}),
            "unknown option '--force'; try 'tarvio files --help'");
}

TEST(ClientArguments, OfPackNameAPackageFile) {
  for (const Line& line :
       {Line{"pack", "clock", "-o", "a/x.tbx"}, Line{"pack", "-oa/x.tbx", "clock"},
        Line{"--output=a/x.tbx", "pack", "clock"}}) {
    EXPECT_EQ(value(arguments_of(line), "output"), "a/x.tbx");
    EXPECT_EQ(arguments_of(line).operands, Line{"clock"});
  }
  for (const char* name : {"x", "x.ipk", ".tbx", "a/.tbx", "x.tbx/", ""}) {
    EXPECT_EQ(complaint_of({"pack", "clock", "-o", name}),
              "'" + std::string(name) +
                  "': package file names must end in .tbx; try 'tarvio pack --help'");
  }
}

TEST(ClientArguments, MayBeFractionsOfASecondAndForever) {
  EXPECT_EQ(arguments_of({"status", "--timeout", "0.25"}).timeout_seconds, 0.25);
  EXPECT_EQ(arguments_of({"status", "--timeout", "0"}).timeout_seconds, 0);
}

TEST(ClientArguments, MayBeATimeoutOfWhatNeverWaits) {
  EXPECT_EQ(run_tarvio({"areas", "--timeout", "1"}).status, 0);
}

TEST(ClientArguments, RefuseATimeoutThatIsNotANumberOfSeconds) {
  for (const char* text : {"", "x", "-1", "1s", "1e3", "nan", "inf", "0x10", ".", "1.2.3", " 1",
                           "100000001", "99999999999999999999"}) {
    EXPECT_EQ(complaint_of({"status", "--timeout", text}),
              "timeout '" + std::string(text) +
                  "' is not a number of seconds; try 'tarvio status --help'");
  }
}

TEST(ClientArguments, RefuseNamesThatTheManagerWouldReadOtherwise) {
  EXPECT_EQ(complaint_of({"start", ""}), "NAME must not be empty; try 'tarvio start --help'");
  EXPECT_EQ(complaint_of({"status", ""}), "NAME must not be empty; try 'tarvio status --help'");
  for (const char* name : {"a\nb", "a\r", "\n"}) {
    EXPECT_EQ(complaint_of({"stop", name}),
              "NAME must not contain a line end; try 'tarvio stop --help'");
  }
  EXPECT_EQ(complaint_of({"start", std::string(255, 'x')}),
            "NAME must not be longer than 254 bytes; try 'tarvio start --help'");
  EXPECT_EQ(run_tarvio({"start", std::string(254, 'x')}).status, 3) << "there is no manager";
}

TEST(ClientArguments, NameTheGoodCategories) {
  EXPECT_EQ(complaint_of({"list", "--category", "apps"}),
            "unknown category 'apps'; use one of image (0), application (1), other (2); try "
            "'tarvio list --help'");
  EXPECT_EQ(complaint_of({"list", "--subcategory", "9"}),
            "unknown subcategory '9'; use one of native (0), java (1), browser (2), jsp (3), other "
            "(4); try 'tarvio list --help'");
}

TEST(ClientArguments, AreRefusedWhenTheyAreUnknown) {
  expect_complaints({
      {{}, "a command is missing; try 'tarvio --help'"},
      {{"--json"}, "a command is missing; try 'tarvio --help'"},
      {{""}, "unknown command ''; try 'tarvio --help'"},
      {{"reboot"}, "unknown command 'reboot'; try 'tarvio --help'"},
      {{"--bogus"}, "unknown option '--bogus'; try 'tarvio --help'"},
      {{"-x", "status"}, "unknown option '-x'; try 'tarvio status --help'"},
      {{"status", "--bogus"}, "unknown option '--bogus'; try 'tarvio status --help'"},
      {{"status", "--category", "image"},
       "unknown option '--category'; try 'tarvio status --help'"},
      {{"start", "clock", "--apps"}, "unknown option '--apps'; try 'tarvio start --help'"},
      {{"list", "--jso"}, "unknown option '--jso'; try 'tarvio list --help'"},
      {{"inspect", "x.tbx", "-o", "y.tbx"}, "unknown option '-o'; try 'tarvio inspect --help'"},
  });
}

TEST(ClientArguments, AreRefusedWhenThereAreTooMany) {
  expect_complaints({
      {{"list", "clock"}, "unexpected argument 'clock'; try 'tarvio list --help'"},
      {{"start", "clock", "web"}, "unexpected argument 'web'; try 'tarvio start --help'"},
      {{"start-all", "clock"}, "unexpected argument 'clock'; try 'tarvio start-all --help'"},
      {{"pack", "a", "b", "-o", "x.tbx"}, "unexpected argument 'b'; try 'tarvio pack --help'"},
  });
}

TEST(ClientArguments, AreMissedWhenThereAreTooFew) {
  expect_complaints({
      {{"--timeout", "status", "stop"},
       "the NAME of the application is missing; try 'tarvio stop --help'"},
      {{"start"}, "the NAME of the application is missing; try 'tarvio start --help'"},
      {{"stop"}, "the NAME of the application is missing; try 'tarvio stop --help'"},
      {{"remove"}, "the NAME of the package is missing; try 'tarvio remove --help'"},
      {{"inspect"}, "the package FILE is missing; try 'tarvio inspect --help'"},
      {{"pack", "-o", "x.tbx"}, "the directory DIR is missing; try 'tarvio pack --help'"},
      {{"pack", "a"}, "option '-o FILE' is missing; try 'tarvio pack --help'"},
      {{"pack", "a", "-o"}, "option '-o' needs a value, FILE; try 'tarvio pack --help'"},
      {{"backup", "kernel"}, "option '--to FILE' is missing; try 'tarvio backup --help'"},
  });
}

TEST(ClientArguments, AreNeverAbbreviated) {
  expect_complaints({
      {{"list", "--cat", "image"}, "unknown option '--cat'; try 'tarvio list --help'"},
      {{"list", "--c=image"}, "unknown option '--c=image'; try 'tarvio list --help'"},
      {{"list", "--subcategor"}, "unknown option '--subcategor'; try 'tarvio list --help'"},
      {{"status", "--jso=3"}, "unknown option '--jso=3'; try 'tarvio status --help'"},
      {{"status", "--s"}, "unknown option '--s'; try 'tarvio status --help'"},
  });
}

TEST(ClientArguments, OfOneLetterMayStandTogether) {
  EXPECT_TRUE(has(arguments_of({"status", "-Vh"}), "help"));
  EXPECT_TRUE(has(arguments_of({"status", "-Vh"}), "version"));
  EXPECT_EQ(value(arguments_of({"pack", "x", "-hox.tbx"}), "output"), "x.tbx");
  EXPECT_EQ(complaint_of({"status", "-Vx"}), "unknown option '-x'; try 'tarvio status --help'");
}

TEST(ClientArguments, AreRefusedForTheFirstThingThatIsWrong) {
  expect_complaints({
      {{"--one", "reboot", "--two"}, "unknown option '--one'; try 'tarvio --help'"},
      {{"reboot", "--two"}, "unknown command 'reboot'; try 'tarvio --help'"},
  });
}

TEST(ClientArguments, OfACommandMayStandBeforeIt) {
  EXPECT_EQ(value(arguments_of({"--category", "image", "list"}), "category"), "image");
  EXPECT_EQ(complaint_of({"--category", "image", "status"}),
            "unknown option '--category'; try 'tarvio status --help'");
}

TEST(ClientArguments, SayWhichValueIsMissing) {
  expect_complaints({
      {{"status", "--timeout"},
       "option '--timeout' needs a value, SECONDS; try 'tarvio status --help'"},
      {{"list", "--name"}, "option '--name' needs a value, N; try 'tarvio list --help'"},
  });
}

TEST(ClientArguments, GiveFlagsNoValue) {
  expect_complaints({
      {{"status", "--json=3"}, "option '--json' does not take a value; try 'tarvio status --help'"},
      {{"status", "--help="}, "option '--help' does not take a value; try 'tarvio status --help'"},
  });
}

TEST(ClientArguments, OfBackupNameAreasOnce) {
  expect_complaints({
      {{"backup", "kernel", "boot", "--to", "x.tbx"},
       "unknown flash area 'boot'; 'tarvio areas' lists them; try 'tarvio backup --help'"},
      {{"backup", "kernel", "kernel", "--to", "x.tbx"},
       "duplicate flash area 'kernel'; try 'tarvio backup --help'"},
  });
}

TEST(ClientVersion, GoesToStandardOutput) {
  const Ran run = run_tarvio({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "tarvio " TARVIO_VERSION "\n");
  EXPECT_EQ(run_tarvio({"-V"}).output, run.output);
  EXPECT_EQ(run_tarvio({"status", "--version"}).output, run.output);
}

TEST(ClientUsage, CannotDriveTheTerminal) {
  EXPECT_EQ(complaint_of({"start", "cl\x1bock", "\x1b[2J"}),
            "unexpected argument '\\x1b[2J'; try 'tarvio start --help'");
}

}  // namespace
}  // namespace client
