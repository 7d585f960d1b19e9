#include "commands/arguments.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "commands/command_list.h"
#include "commands/help.h"

namespace client {

namespace {

constexpr double kMaxTimeout = 1e8;

template <typename Predicate>
std::optional<Option> find_option(const Command* command, Predicate is_wanted) {
  const std::vector<Option> options = options_of(command);
  const auto found = std::find_if(options.begin(), options.end(), is_wanted);
  return found == options.end() ? std::nullopt : std::optional(*found);
}

// An option of any command: it may stand before its command.
template <typename Predicate>
std::optional<Option> find_option_of_any(Predicate is_wanted) {
  for (const Command* command : all_commands()) {
    if (const std::optional<Option> found = find_option(command, is_wanted)) return found;
  }
  return std::nullopt;
}

class Reader {
 public:
  Reader(int argc, const char* const* argv) : argc_(argc), argv_(argv) {}

  Arguments read() {
    while (at_ < argc_) {
      const std::string_view word = argv_[at_++];
      if (are_options_over_ || word == "-" || !word.starts_with('-')) {
        add_operand(std::string(word));
      } else if (word == "--") {
        are_options_over_ = true;
      } else if (word.starts_with("--")) {
        read_name(word);
      } else {
        read_letters(word.substr(1));
      }
    }
    check_options();
    return std::move(arguments_);
  }

 private:
  void add_operand(std::string operand) {
    if (arguments_.command != nullptr) {
      arguments_.operands.push_back(std::move(operand));
      return;
    }
    arguments_.command = find_command(operand);
    if (arguments_.command == nullptr) refuse("unknown command '" + operand + "'");
  }

  // "--name", "--name=value". Names are never abbreviated: scripts that rely on an abbreviation
  // break when another option of that beginning comes.
  void read_name(std::string_view word) {
    const size_t equals = word.find('=');
    const std::string spelling(word.substr(0, equals));
    const auto option = find_option_of_any(
        [name = spelling.substr(2)](const Option& each) { return name == each.name; });
    if (!option) {
      refuse("unknown option '" + std::string(word) + "'");
    } else if (equals == std::string_view::npos) {
      add_option(*option, spelling);
    } else if (option->value == nullptr) {
      refuse("option '" + spelling + "' does not take a value");
    } else {
      arguments_.options.push_back({*option, spelling, std::string(word.substr(equals + 1))});
    }
  }

  // Several letters of flags, and then perhaps one with its value.
  void read_letters(std::string_view letters) {
    while (!letters.empty()) {
      const char letter = letters.front();
      letters.remove_prefix(1);
      const std::string spelling = {'-', letter};
      const auto option =
          find_option_of_any([letter](const Option& each) { return each.letter == letter; });
      if (!option) {
        refuse("unknown option '" + spelling + "'");
      } else if (option->value == nullptr || letters.empty()) {
        add_option(*option, spelling);
      } else {
        arguments_.options.push_back({*option, spelling, std::string(letters)});
        return;
      }
    }
  }

  // A flag, an option that is given without its value, or one whose value is the next word,
  // whatever that looks like.
  void add_option(const Option& option, const std::string& spelling) {
    if (option.value == nullptr) {
      arguments_.options.push_back({option, spelling, ""});
    } else if (option.fallback != nullptr) {
      arguments_.options.push_back({option, spelling, option.fallback});
    } else if (at_ < argc_) {
      arguments_.options.push_back({option, spelling, argv_[at_++]});
    } else {
      refuse("option '" + spelling + "' needs a value, " + option.value);
    }
  }

  void check_options() {
    if (arguments_.command == nullptr) return;
    for (const GivenOption& given : arguments_.options) {
      const auto is_given = [&](const Option& each) {
        return std::string_view(each.name) == given.option.name;
      };
      if (!find_option(arguments_.command, is_given)) {
        refuse("unknown option '" + given.spelling + "'");
      }
    }
  }

  void refuse(std::string what) {
    if (arguments_.wrong.empty()) arguments_.wrong = std::move(what);
  }

  int argc_;
  const char* const* argv_;
  int at_ = 1;
  bool are_options_over_ = false;
  Arguments arguments_;
};

double seconds_in(const char* name, const std::string& text) {
  char* end = nullptr;
  const double seconds = strtod(text.c_str(), &end);
  const bool is_number =
      !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos && *end == '\0';
  if (!is_number || seconds > kMaxTimeout) {
    throw UsageError(std::string(name) + " '" + text + "' is not a number of seconds");
  }
  return seconds;
}

}  // namespace

const std::string* Arguments::value_of(const Option& option) const {
  const auto given = std::find_if(options.rbegin(), options.rend(), [&](const GivenOption& each) {
    return std::string_view(each.option.name) == option.name;
  });
  return given == options.rend() ? nullptr : &given->value;
}

double Arguments::seconds_of(const Option& option, double otherwise) const {
  const std::string* const given = value_of(option);
  return given == nullptr ? otherwise : seconds_in(option.name, *given);
}

Arguments read_arguments(int argc, const char* const* argv) { return Reader(argc, argv).read(); }

void check_arguments(Arguments& arguments) {
  if (arguments.command == nullptr) throw UsageError("a command is missing");
  const Command& command = *arguments.command;
  const Operands& wanted = command.operands;
  if (arguments.operands.size() > wanted.max) {
    throw UsageError("unexpected argument '" + arguments.operands[wanted.max] + "'");
  }
  if (arguments.operands.size() < wanted.min) {
    throw UsageError(std::string(wanted.missing) + " is missing");
  }
  arguments.timeout_seconds = arguments.seconds_of(command.timeout.option, command.timeout.seconds);
  for (const Option& option : command.options) {
    if (!option.is_required || arguments.has(option)) continue;
    throw UsageError("option '" + short_form(option) + "' is missing");
  }
}

Progress::Kind progress_in(const Arguments& arguments) {
  return progress_kind(arguments.has(kQuiet) || arguments.has(kJson));
}

}  // namespace client
