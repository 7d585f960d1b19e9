#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "help.h"
#include "words.h"

namespace client {

namespace {

// The manager reads lines of at most so many bytes.
constexpr size_t kLongestName = 254;
constexpr double kLongestTimeout = 1e8;

struct CommandWord {
  const char* word;
  Command command;
  bool takes_name;
};
constexpr std::array<CommandWord, 6> kCommands = {{
    {"status", Command::kStatus, true},
    {"start", Command::kStart, true},
    {"stop", Command::kStop, true},
    {"start-all", Command::kStartAll, false},
    {"stop-all", Command::kStopAll, false},
    {"list", Command::kList, false},
}};

// What is wrong with the command line.
struct UsageError {
  std::string text;
};

// The arguments as they stand on the line.
struct Arguments {
  std::string name;
  std::string package;
  std::string category;
  std::string subcategory;
  std::string timeout;
  bool apps = false;
  bool json = false;
  bool help = false;
  bool version = false;
};

// The help texts are fixed ones, so the parser gets no descriptions to make them from.
class Parser {
 public:
  explicit Parser(std::span<const char* const> line);

  // Throws CLI::ParseError and UsageError.
  void parse();
  // Null when the line has none. Valid after a failed parse as well.
  [[nodiscard]] const CommandWord* command() const;
  [[nodiscard]] const Arguments& arguments() const { return arguments_; }
  [[nodiscard]] bool is_given(const char* option) const;

 private:
  CLI::App* add_command(const CommandWord& command);
  void check_rest() const;
  [[nodiscard]] size_t parsed_index() const;

  std::span<const char* const> line_;
  CLI::App app_;
  std::array<CLI::App*, kCommands.size()> commands_ = {};
  Arguments arguments_;
};

Parser::Parser(std::span<const char* const> line) : line_(line) {
  app_.set_help_flag();
  app_.allow_extras();
  app_.require_subcommand(0, 1);
  app_.add_flag("-h,--help", arguments_.help)->disable_flag_override();
  app_.add_flag("-V,--version", arguments_.version)->disable_flag_override();
  app_.add_flag("--json", arguments_.json)->disable_flag_override();
  app_.add_option("--timeout", arguments_.timeout)->take_last()->type_name("SECONDS");
  for (size_t at = 0; at < kCommands.size(); ++at) {
    const auto is_word = [&](std::string_view argument) { return argument == kCommands[at].word; };
    // A command costs time to make, and the line names one.
    if (std::any_of(line.begin(), line.end(), is_word)) commands_[at] = add_command(kCommands[at]);
  }
}

CLI::App* Parser::add_command(const CommandWord& command) {
  CLI::App* const app = app_.add_subcommand(command.word);
  app->set_help_flag();
  app->fallthrough();
  if (command.takes_name) app->add_option("NAME", arguments_.name);
  if (command.command == Command::kStatus) {
    app->add_flag("--apps", arguments_.apps)->disable_flag_override();
  }
  if (command.command == Command::kList) {
    app->add_option("--category", arguments_.category)->take_last()->type_name("C");
    app->add_option("--subcategory", arguments_.subcategory)->take_last()->type_name("S");
    app->add_option("--name", arguments_.package)->take_last()->type_name("N");
  }
  return app;
}

void Parser::parse() {
  app_.parse(static_cast<int>(line_.size()), line_.data());
  if (!arguments_.help) check_rest();
}

size_t Parser::parsed_index() const {
  const auto* const found =
      std::find_if(commands_.begin(), commands_.end(),
                   [](const CLI::App* app) { return app != nullptr && app->parsed(); });
  return static_cast<size_t>(found - commands_.begin());
}

const CommandWord* Parser::command() const {
  const size_t at = parsed_index();
  return at < kCommands.size() ? &kCommands[at] : nullptr;
}

bool Parser::is_given(const char* option) const {
  const size_t at = parsed_index();
  const CLI::Option* found =
      at < commands_.size() ? commands_[at]->get_option_no_throw(option) : nullptr;
  if (found == nullptr) found = app_.get_option_no_throw(option);
  return found != nullptr && found->count() > 0;
}

// Refuses what neither the program nor its command knows.
void Parser::check_rest() const {
  const std::vector<std::string> rest = app_.remaining(true);
  const auto unknown = std::find_if(rest.begin(), rest.end(),
                                    [](const std::string& argument) { return argument != "--"; });
  if (unknown == rest.end()) return;
  if (unknown->starts_with('-') && *unknown != "-")
    throw UsageError{"no option '" + *unknown + "'"};
  const char* what = command() == nullptr ? "no command '" : "unexpected argument '";
  throw UsageError{what + *unknown + "'"};
}

double timeout_of(const std::string& text) {
  char* end = nullptr;
  const double seconds = strtod(text.c_str(), &end);
  const bool is_number =
      !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos && *end == '\0';
  if (!is_number || seconds > kLongestTimeout) {
    throw UsageError{"the timeout '" + text + "' is not a number of seconds"};
  }
  return seconds;
}

uint32_t known(std::optional<uint32_t> code, const char* kind, const std::string& word,
               const std::string& choices) {
  if (!code) throw UsageError{std::string("no ") + kind + " '" + word + "', only " + choices};
  return *code;
}

void check_name(const std::string& name) {
  if (name.empty()) throw UsageError{"NAME is empty, which every application would match"};
  if (name.find_first_of("\r\n") != std::string::npos) {
    throw UsageError{"NAME has a line end in it, which no application has"};
  }
  if (name.size() > kLongestName) {
    throw UsageError{"NAME is longer than " + std::to_string(kLongestName) + " bytes"};
  }
}

Options options_of(const Parser& parser, const CommandWord& command) {
  const Arguments& arguments = parser.arguments();
  Options options = {.command = command.command,
                     .name = std::nullopt,
                     .json = arguments.json,
                     .only_applications = arguments.apps};
  if (command.takes_name && parser.is_given("NAME")) {
    check_name(arguments.name);
    options.name = arguments.name;
  } else if (command.takes_name && command.command != Command::kStatus) {
    throw UsageError{"the NAME of the application is missing"};
  }
  if (parser.is_given("--timeout")) options.timeout_seconds = timeout_of(arguments.timeout);
  if (parser.is_given("--name")) options.name = arguments.package;
  if (parser.is_given("--category")) {
    options.category = known(category_code(arguments.category), "category", arguments.category,
                             category_choices());
  }
  if (parser.is_given("--subcategory")) {
    options.subcategory = known(subcategory_code(arguments.subcategory), "subcategory",
                                arguments.subcategory, subcategory_choices());
  }
  return options;
}

CommandLine wrong(const std::string& what, const CommandWord* command) {
  const std::string program =
      command == nullptr ? "tarvio" : std::string("tarvio ") + command->word;
  return {
      .options = std::nullopt, .text = what + ": try '" + program + " --help'", .is_wrong = true};
}

CommandLine tell(const char* text) {
  return {.options = std::nullopt, .text = text, .is_wrong = false};
}

}  // namespace

CommandLine parse_command_line(int argc, const char* const* argv) {
  Parser parser({argv, static_cast<size_t>(argc)});
  try {
    parser.parse();
    const Arguments& arguments = parser.arguments();
    const CommandWord* const command = parser.command();
    if (arguments.help)
      return tell(help_of(command == nullptr ? Command::kNone : command->command));
    if (arguments.version) return tell("tarvio " TARVIO_VERSION "\n");
    if (command == nullptr) return wrong("a command is missing", nullptr);
    return {.options = options_of(parser, *command), .text = "", .is_wrong = false};
  } catch (const UsageError& error) {
    return wrong(error.text, parser.command());
  } catch (const CLI::ParseError& error) {
    return wrong(error.what(), parser.command());
  }
}

}  // namespace client
