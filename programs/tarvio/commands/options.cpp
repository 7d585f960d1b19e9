#include "commands/options.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>

#include "commands/arguments.h"
#include "flash/area_parts.h"
#include "packages/package_file.h"
#include "terminal/words.h"

namespace client {

namespace {

// The manager reads lines of at most so many bytes.
constexpr size_t kLongestName = 254;
constexpr double kLongestTimeout = 1e8;

// What is wrong with the command line.
struct UsageError {
  std::string text;
};

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

void check_area(const std::vector<std::string>& areas, size_t at) {
  if (find_area(areas[at]) == nullptr) {
    throw UsageError{"no area '" + areas[at] + "': 'tarvio areas' lists them"};
  }
  const auto here = areas.begin() + static_cast<std::ptrdiff_t>(at);
  if (std::find(areas.begin(), here, areas[at]) != here) {
    throw UsageError{"the area '" + areas[at] + "' is named twice"};
  }
}

constexpr size_t kAny = std::numeric_limits<size_t>::max();

// How many operands there may be, and what is missing where there is none.
struct OperandRule {
  size_t least;
  size_t most;
  const char* what;
};

OperandRule rule_of(Operands operands) {
  switch (operands) {
    case Operands::kOptionalApplication:
      return {0, 1, ""};
    case Operands::kApplication:
      return {1, 1, "the NAME of the application"};
    case Operands::kDirectory:
      return {1, 1, "the directory DIR"};
    case Operands::kFile:
      return {1, 1, "the image package FILE"};
    case Operands::kFiles:
      return {1, kAny, "the package FILE"};
    case Operands::kAreas:
      return {1, kAny, "the name of an AREA"};
    case Operands::kPackages:
      return {1, kAny, "the NAME of the package"};
    case Operands::kNone:
      break;
  }
  return {0, 0, ""};
}

void take_operands(const Arguments& arguments, Options& options) {
  const Operands kind = arguments.command->operands;
  const OperandRule rule = rule_of(kind);
  const size_t count = arguments.operands.size();
  if (count > rule.most) {
    throw UsageError{"unexpected argument '" + arguments.operands[rule.most] + "'"};
  }
  if (count < rule.least) throw UsageError{std::string(rule.what) + " is missing"};
  if (kind == Operands::kOptionalApplication || kind == Operands::kApplication) {
    if (count == 0) return;
    options.name = arguments.operands.front();
    check_name(*options.name);
  } else {
    options.operands = arguments.operands;
  }
}

void take_filter(const Arguments& arguments, Options& options) {
  if (const GivenOption* name = arguments.find(Option::kName)) options.name = name->value;
  if (const GivenOption* given = arguments.find(Option::kCategory)) {
    options.category =
        known(category_code(given->value), "category", given->value, category_choices());
  }
  if (const GivenOption* given = arguments.find(Option::kSubcategory)) {
    options.subcategory =
        known(subcategory_code(given->value), "subcategory", given->value, subcategory_choices());
  }
}

void take_target(const Arguments& arguments, Options& options) {
  if (arguments.command->command != Command::kBackup) return;
  for (size_t at = 0; at < options.operands.size(); ++at) check_area(options.operands, at);
  const GivenOption* const to = arguments.find(Option::kTo);
  if (to == nullptr) throw UsageError{"the file to write, --to FILE, is missing"};
  if (!is_image_file_name(to->value)) {
    throw UsageError{"the name of the file may have letters, digits and '.', '_', '+', '-', not '" +
                     to->value + "'"};
  }
  options.output = to->value;
}

// A restore is verified unless the line tells otherwise, a backup only when it does; of several
// options the last one counts.
bool wants_verification(const Arguments& arguments) {
  bool verify = arguments.command->command == Command::kRestore;
  for (const GivenOption& given : arguments.options) {
    if (given.option == Option::kVerify) verify = true;
    if (given.option == Option::kNoVerify) verify = false;
  }
  return verify;
}

void take_flash_options(const Arguments& arguments, Options& options) {
  take_target(arguments, options);
  if (const GivenOption* given = arguments.find(Option::kWorkDirectory)) {
    if (given->value.empty()) throw UsageError{"the directory --workdir DIR has no name"};
    options.work_directory = given->value;
  }
  options.overwrite = arguments.find(Option::kOverwrite) != nullptr;
  options.quiet = arguments.find(Option::kQuiet) != nullptr;
  options.yes = arguments.find(Option::kYes) != nullptr;
  options.verify = wants_verification(arguments);
}

void take_output(const Arguments& arguments, Options& options) {
  if (!arguments.command->options.has(Option::kOutput)) return;
  const GivenOption* const given = arguments.find(Option::kOutput);
  if (given == nullptr) throw UsageError{"the file to write, -o FILE, is missing"};
  if (!is_package_file_name(given->value)) {
    throw UsageError{"the name of a package file ends in .tbx, not as '" + given->value + "'"};
  }
  options.output = given->value;
}

Options options_of(const Arguments& arguments) {
  Options options;
  options.command = arguments.command->command;
  options.json = arguments.find(Option::kJson) != nullptr;
  options.only_applications = arguments.find(Option::kApps) != nullptr;
  options.watch = arguments.find(Option::kWatch) != nullptr;
  options.force = arguments.find(Option::kForce) != nullptr;
  options.timeout_seconds = arguments.command->timeout_seconds;
  take_operands(arguments, options);
  if (const GivenOption* timeout = arguments.find(Option::kTimeout)) {
    options.timeout_seconds = timeout_of(timeout->value);
  }
  take_filter(arguments, options);
  take_output(arguments, options);
  take_flash_options(arguments, options);
  return options;
}

CommandLine wrong(const std::string& what, const CommandRow* command) {
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
  const Arguments arguments = read_arguments(argc, argv);
  const CommandRow* const command = arguments.command;
  if (arguments.find(Option::kHelp) != nullptr) {
    return tell(help_of(command == nullptr ? Command::kNone : command->command));
  }
  if (arguments.wrong) return wrong(*arguments.wrong, command);
  if (arguments.find(Option::kVersion) != nullptr) return tell("tarvio " TARVIO_VERSION "\n");
  if (command == nullptr) return wrong("a command is missing", nullptr);
  try {
    return {.options = options_of(arguments), .text = "", .is_wrong = false};
  } catch (const UsageError& error) {
    return wrong(error.text, command);
  }
}

}  // namespace client
