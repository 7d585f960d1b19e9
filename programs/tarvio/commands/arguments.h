// The words of a command line: its command, operands and options.
#ifndef TARVIO_CLIENT_COMMANDS_ARGUMENTS_H
#define TARVIO_CLIENT_COMMANDS_ARGUMENTS_H

#include <string>
#include <vector>

#include "commands/command.h"
#include "terminal/progress.h"

namespace client {

struct GivenOption {
  Option option;
  std::string spelling;  // as it stands on the line
  std::string value;     // empty for a flag
};

struct Arguments {
  const Command* command = nullptr;  // null when the line has none
  std::vector<std::string> operands;
  std::vector<GivenOption> options;
  double timeout_seconds = 0;
  std::string wrong;  // the first thing that is wrong with the words; empty for none

  [[nodiscard]] bool has(const Option& option) const { return value_of(option) != nullptr; }
  // Of several the last one counts; null when it is not given.
  [[nodiscard]] const std::string* value_of(const Option& option) const;
  // The value of an option that is a number of seconds, or what counts without it. Throws
  // UsageError.
  [[nodiscard]] double seconds_of(const Option& option, double otherwise) const;
};

// Options may stand anywhere before "--". Reading goes on after what is wrong, for the sake of a
// --help that follows.
Arguments read_arguments(int argc, const char* const* argv);

// Whether nothing is missing and nothing is too much; takes the timeout over. Throws UsageError.
void check_arguments(Arguments& arguments);

// What it may show of the progress.
Progress::Kind progress_in(const Arguments& arguments);

}  // namespace client

#endif
