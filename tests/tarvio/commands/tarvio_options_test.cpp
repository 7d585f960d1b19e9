// The client's command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/options.h"
#include "support/tarvio.h"

namespace client {
namespace {

using tarvio_test::Ran;
using tarvio_test::run_tarvio;
using testing::HasSubstr;
using testing::StartsWith;

using Line = std::vector<std::string>;

CommandLine parse(const Line& line) {
  std::vector<const char*> argv = {"tarvio"};
  for (const std::string& argument : line) argv.push_back(argument.c_str());
  return parse_command_line(static_cast<int>(argv.size()), argv.data());
}

// The options of a line that is right.
Options options_of(const Line& line) {
  const CommandLine parsed = parse(line);
  EXPECT_TRUE(parsed.options.has_value()) << parsed.text;
  return parsed.options.value_or(Options{});
}

// What is wrong with a line.
std::string complaint_of(const Line& line) {
  const CommandLine parsed = parse(line);
  EXPECT_FALSE(parsed.options.has_value());
  EXPECT_TRUE(parsed.is_wrong) << parsed.text;
  return parsed.text;
}

// What a line makes the program tell.
std::string told_by(const Line& line) {
  const CommandLine parsed = parse(line);
  EXPECT_FALSE(parsed.options.has_value());
  EXPECT_FALSE(parsed.is_wrong) << parsed.text;
  return parsed.text;
}

const std::map<std::string, Command> kCommands = {
    {"status", Command::kStatus},      {"start", Command::kStart},      {"stop", Command::kStop},
    {"start-all", Command::kStartAll}, {"stop-all", Command::kStopAll}, {"list", Command::kList},
    {"install", Command::kInstall},    {"remove", Command::kRemove},    {"files", Command::kFiles},
    {"check", Command::kCheck},        {"inspect", Command::kInspect},  {"pack", Command::kPack},
};

TEST(ClientOptions, HaveDefaults) {
  const Options options = options_of({"status"});
  EXPECT_EQ(options.command, Command::kStatus);
  EXPECT_EQ(options.name, std::nullopt);
  EXPECT_FALSE(options.json);
  EXPECT_FALSE(options.only_applications);
  EXPECT_EQ(options.timeout_seconds, 30);
  EXPECT_EQ(options.category, 100U);
  EXPECT_EQ(options.subcategory, 151U);
}

TEST(ClientOptions, KnowEveryCommand) {
  const std::map<std::string, Line> rests = {
      {"start", {"clock"}},   {"stop", {"clock"}},           {"install", {"x.tbx"}},
      {"remove", {"clock"}},  {"files", {"clock"}},          {"check", {"x.tbx"}},
      {"inspect", {"x.tbx"}}, {"pack", {"x", "-o", "x.tbx"}}};
  for (const auto& [word, command] : kCommands) {
    Line line = {word};
    if (const auto rest = rests.find(word); rest != rests.end()) {
      line.insert(line.end(), rest->second.begin(), rest->second.end());
    }
    EXPECT_EQ(options_of(line).command, command);
  }
}

TEST(ClientOptions, StandBeforeOrAfterTheCommand) {
  for (const Line& line : {Line{"--timeout", "5", "--json", "start", "clock"},
                           Line{"start", "--timeout=5", "clock", "--json"},
                           Line{"--json", "start", "clock", "--timeout", "5"}}) {
    const Options options = options_of(line);
    EXPECT_EQ(options.command, Command::kStart);
    EXPECT_EQ(options.name, "clock");
    EXPECT_TRUE(options.json);
    EXPECT_EQ(options.timeout_seconds, 5);
  }
}

TEST(ClientOptions, TakeTheLastOfSeveralValues) {
  EXPECT_EQ(options_of({"--timeout", "5", "status", "--timeout", "7"}).timeout_seconds, 7);
  EXPECT_EQ(options_of({"list", "--category", "image", "--category", "other"}).category, 2U);
}

TEST(ClientOptions, OfAListingFilter) {
  const Options options =
      options_of({"list", "--category", "Application", "--subcategory", "3", "--name", "clock"});
  EXPECT_EQ(options.category, 1U);
  EXPECT_EQ(options.subcategory, 3U);
  EXPECT_EQ(options.name, "clock");
}

TEST(ClientOptions, OfStatusMayNameApplications) {
  EXPECT_TRUE(options_of({"status", "--apps"}).only_applications);
  EXPECT_EQ(options_of({"status", "clock"}).name, "clock");
}

TEST(ClientOptions, LetANameLookLikeAnything) {
  for (const char* name :
       {"start", "status", "[a,b]", "{}", "a b", "@x", "/x", "-", "Ä", "%s", "%"}) {
    EXPECT_EQ(options_of({"start", name}).name, name);
  }
  EXPECT_EQ(options_of({"start", "--", "--json"}).name, "--json");
  EXPECT_FALSE(options_of({"start", "--", "--json"}).json);
  EXPECT_EQ(options_of({"--", "start", "clock"}).name, "clock");
}

TEST(ClientOptions, OfPackageFilesTakeSeveral) {
  const Options options = options_of({"inspect", "a.tbx", "--json", "b c.tbx", "--", "--json"});
  EXPECT_EQ(options.operands, (Line{"a.tbx", "b c.tbx", "--json"}));
  EXPECT_EQ(options.name, std::nullopt);
  EXPECT_EQ(options.timeout_seconds, 600);
  EXPECT_EQ(options_of({"inspect", "a.tbx", "--timeout", "1"}).timeout_seconds, 1);
}

TEST(ClientOptions, OfAChangeMayForceIt) {
  for (const char* command : {"install", "remove"}) {
    EXPECT_TRUE(options_of({command, "clock", "--force"}).force);
    EXPECT_FALSE(options_of({command, "clock"}).force);
  }
  EXPECT_EQ(complaint_of({"files", "clock", "--force"}),
            "no option '--force': try 'tarvio files --help'");
}

TEST(ClientOptions, OfPackNameAPackageFile) {
  for (const Line& line :
       {Line{"pack", "clock", "-o", "a/x.tbx"}, Line{"pack", "-oa/x.tbx", "clock"},
        Line{"--output=a/x.tbx", "pack", "clock"}}) {
    EXPECT_EQ(options_of(line).output, "a/x.tbx");
    EXPECT_EQ(options_of(line).operands, Line{"clock"});
  }
  for (const char* name : {"x", "x.ipk", ".tbx", "a/.tbx", "x.tbx/", ""}) {
    EXPECT_EQ(complaint_of({"pack", "clock", "-o", name}),
              "the name of a package file ends in .tbx, not as '" + std::string(name) +
                  "': try 'tarvio pack --help'");
  }
}

TEST(ClientOptions, TakeFractionsOfASecondAndForEver) {
  EXPECT_EQ(options_of({"status", "--timeout", "0.25"}).timeout_seconds, 0.25);
  EXPECT_EQ(options_of({"status", "--timeout", "0"}).timeout_seconds, 0);
}

TEST(ClientOptions, RefuseATimeoutThatIsNoNumberOfSeconds) {
  for (const char* text : {"", "x", "-1", "1s", "1e3", "nan", "inf", "0x10", ".", "1.2.3", " 1",
                           "100000001", "99999999999999999999"}) {
    EXPECT_EQ(complaint_of({"status", "--timeout", text}),
              "the timeout '" + std::string(text) +
                  "' is not a number of seconds: try 'tarvio status --help'");
  }
}

TEST(ClientOptions, RefuseNamesThatTheManagerWouldReadOtherwise) {
  EXPECT_EQ(complaint_of({"start", ""}),
            "NAME is empty, which every application would match: try 'tarvio start --help'");
  for (const char* name : {"a\nb", "a\r", "\n"}) {
    EXPECT_EQ(complaint_of({"stop", name}),
              "NAME has a line end in it, which no application has: try 'tarvio stop --help'");
  }
  EXPECT_EQ(complaint_of({"start", std::string(255, 'x')}),
            "NAME is longer than 254 bytes: try 'tarvio start --help'");
  EXPECT_EQ(options_of({"start", std::string(254, 'x')}).name, std::string(254, 'x'));
}

TEST(ClientOptions, NameTheGoodCategories) {
  EXPECT_EQ(complaint_of({"list", "--category", "apps"}),
            "no category 'apps', only image (0), application (1), other (2): try 'tarvio list "
            "--help'");
  EXPECT_EQ(complaint_of({"list", "--subcategory", "9"}),
            "no subcategory '9', only native (0), java (1), browser (2), jsp (3), other (4): try "
            "'tarvio list --help'");
}

struct Wrong {
  Line line;
  std::string complaint;
};

TEST(ClientOptions, RefuseWhatNobodyKnows) {
  const std::vector<Wrong> cases = {
      {{}, "a command is missing: try 'tarvio --help'"},
      {{"--json"}, "a command is missing: try 'tarvio --help'"},
      {{""}, "no command '': try 'tarvio --help'"},
      {{"restart"}, "no command 'restart': try 'tarvio --help'"},
      {{"--bogus"}, "no option '--bogus': try 'tarvio --help'"},
      {{"-x", "status"}, "no option '-x': try 'tarvio status --help'"},
      {{"status", "--bogus"}, "no option '--bogus': try 'tarvio status --help'"},
      {{"status", "--category", "image"}, "no option '--category': try 'tarvio status --help'"},
      {{"start", "clock", "--apps"}, "no option '--apps': try 'tarvio start --help'"},
      {{"list", "--jso"}, "no option '--jso': try 'tarvio list --help'"},
      {{"list", "clock"}, "unexpected argument 'clock': try 'tarvio list --help'"},
      {{"start", "clock", "web"}, "unexpected argument 'web': try 'tarvio start --help'"},
      {{"start-all", "clock"}, "unexpected argument 'clock': try 'tarvio start-all --help'"},
      {{"--timeout", "status", "stop"},
       "the NAME of the application is missing: try 'tarvio stop --help'"},
      {{"start"}, "the NAME of the application is missing: try 'tarvio start --help'"},
      {{"stop"}, "the NAME of the application is missing: try 'tarvio stop --help'"},
      {{"remove"}, "the NAME of the package is missing: try 'tarvio remove --help'"},
      {{"inspect"}, "the package FILE is missing: try 'tarvio inspect --help'"},
      {{"inspect", "x.tbx", "-o", "y.tbx"}, "no option '-o': try 'tarvio inspect --help'"},
      {{"pack", "-o", "x.tbx"}, "the directory DIR is missing: try 'tarvio pack --help'"},
      {{"pack", "a", "b", "-o", "x.tbx"}, "unexpected argument 'b': try 'tarvio pack --help'"},
      {{"pack", "a"}, "the file to write, -o FILE, is missing: try 'tarvio pack --help'"},
      {{"pack", "a", "-o"}, "option '-o' needs a value, FILE: try 'tarvio pack --help'"},
  };
  for (const Wrong& each : cases) EXPECT_EQ(complaint_of(each.line), each.complaint);
}

TEST(ClientOptions, AreNeverAbbreviated) {
  const std::vector<Wrong> cases = {
      {{"list", "--cat", "image"}, "no option '--cat': try 'tarvio list --help'"},
      {{"list", "--c=image"}, "no option '--c=image': try 'tarvio list --help'"},
      {{"list", "--subcategor"}, "no option '--subcategor': try 'tarvio list --help'"},
      {{"status", "--jso=3"}, "no option '--jso=3': try 'tarvio status --help'"},
      {{"status", "--s"}, "no option '--s': try 'tarvio status --help'"},
  };
  for (const Wrong& each : cases) EXPECT_EQ(complaint_of(each.line), each.complaint);
}

TEST(ClientOptions, OfOneLetterMayStandTogether) {
  EXPECT_EQ(told_by({"status", "-Vh"}), help_of(Command::kStatus));
  EXPECT_EQ(complaint_of({"status", "-Vx"}), "no option '-x': try 'tarvio status --help'");
}

TEST(ClientOptions, TellTheFirstThingThatIsWrong) {
  EXPECT_EQ(complaint_of({"--one", "restart", "--two"}), "no option '--one': try 'tarvio --help'");
  EXPECT_EQ(complaint_of({"restart", "--two"}), "no command 'restart': try 'tarvio --help'");
}

TEST(ClientOptions, OfACommandMayStandBeforeIt) {
  EXPECT_EQ(options_of({"--category", "image", "list"}).category, 0U);
  EXPECT_EQ(complaint_of({"--category", "image", "status"}),
            "no option '--category': try 'tarvio status --help'");
}

TEST(ClientOptions, SayWhichValueIsMissing) {
  EXPECT_EQ(complaint_of({"status", "--timeout"}),
            "option '--timeout' needs a value, SECONDS: try 'tarvio status --help'");
  EXPECT_EQ(complaint_of({"list", "--name"}),
            "option '--name' needs a value, N: try 'tarvio list --help'");
}

TEST(ClientOptions, GiveFlagsNoValue) {
  EXPECT_EQ(complaint_of({"status", "--json=3"}),
            "option '--json' takes no value: try 'tarvio status --help'");
  EXPECT_EQ(complaint_of({"status", "--help="}),
            "option '--help' takes no value: try 'tarvio status --help'");
}

TEST(ClientHelp, IsThereForTheProgramAndForEachCommand) {
  EXPECT_THAT(told_by({"--help"}), StartsWith("usage: tarvio COMMAND"));
  EXPECT_EQ(told_by({"-h"}), told_by({"--help"}));
  for (const auto& [word, command] : kCommands) {
    EXPECT_THAT(told_by({word, "--help"}), StartsWith("usage: tarvio " + word));
    EXPECT_EQ(told_by({"--help", word}), help_of(command));
    EXPECT_THAT(told_by({"--help"}), HasSubstr("\n  " + word)) << "the list of commands";
  }
}

TEST(ClientHelp, WinsOverWhatIsWrong) {
  for (const Line& line : {Line{"start", "--bogus", "--help"}, Line{"start", "a", "b", "-h"},
                           Line{"--help", "start", "--timeout"}, Line{"-h", "start", "--apps"}}) {
    EXPECT_EQ(told_by(line), help_of(Command::kStart));
  }
}

TEST(ClientHelp, NamesEveryOption) {
  for (const auto& [word, command] : kCommands) {
    EXPECT_THAT(help_of(command), HasSubstr("--json")) << word;
    EXPECT_THAT(help_of(command), HasSubstr("--help")) << word;
    EXPECT_THAT(help_of(command), HasSubstr("exit status: ")) << word;
    const bool asks = command != Command::kList;
    EXPECT_EQ(std::string(help_of(command)).find("--timeout") != std::string::npos, asks) << word;
  }
  EXPECT_THAT(help_of(Command::kStatus), HasSubstr("--apps"));
  for (const char* option : {"--category", "--subcategory", "--name"}) {
    EXPECT_THAT(help_of(Command::kList), HasSubstr(option));
  }
  EXPECT_THAT(help_of(Command::kPack), HasSubstr("-o, --output FILE"));
  for (const Command command : {Command::kInstall, Command::kRemove}) {
    EXPECT_THAT(help_of(command), HasSubstr("--force"));
  }
}

TEST(ClientHelp, SaysHowANameIsMatched) {
  for (const Command command : {Command::kStart, Command::kStop}) {
    EXPECT_THAT(help_of(command), HasSubstr("the first application whose name contains NAME"));
  }
}

TEST(ClientHelp, GoesToStandardOutput) {
  const Ran run = run_tarvio({"status", "--help"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, help_of(Command::kStatus));
  EXPECT_EQ(run.errors, "");
}

TEST(ClientVersion, GoesToStandardOutput) {
  const Ran run = run_tarvio({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "tarvio " TARVIO_VERSION "\n");
  EXPECT_EQ(run_tarvio({"-V"}).output, run.output);
}

TEST(ClientUsage, EndsWithItsOwnStatus) {
  const Ran run = run_tarvio({"start", "cl\x1bock", "\x1b[2J"});
  EXPECT_EQ(run.status, 64);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: unexpected argument '\\x1b[2J': try 'tarvio start --help'\n");
}

}  // namespace
}  // namespace client
