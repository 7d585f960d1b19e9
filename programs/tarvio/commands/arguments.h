// The words of a command line: its command, operands and options.
#ifndef TARVIO_CLIENT_COMMANDS_ARGUMENTS_H
#define TARVIO_CLIENT_COMMANDS_ARGUMENTS_H

#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"

namespace client {

// An option as it stands on the line.
struct GivenOption {
  Option option;
  std::string spelling;
  std::string value;  // empty for a flag
};

struct Arguments {
  const CommandRow* command = nullptr;  // null when the line has none
  std::vector<std::string> operands;
  std::vector<GivenOption> options;
  std::optional<std::string> wrong;  // the first thing that is wrong with the line

  // The one that counts, which is the last of several; null when it is not given.
  [[nodiscard]] const GivenOption* find(Option option) const;
};

// Options may stand anywhere before "--". Reading goes on behind what is wrong.
Arguments read_arguments(int argc, const char* const* argv);

}  // namespace client

#endif
