// Help texts, composed from the commands.
#ifndef TARVIO_CLIENT_COMMANDS_HELP_H
#define TARVIO_CLIENT_COMMANDS_HELP_H

#include <string>

#include "commands/command.h"

namespace client {

// The help of a command, or of the program.
std::string help_of(const Command* command);

// "pack DIR -o FILE"
std::string usage_of(const Command& command);

// "-o FILE", "--to FILE"
std::string short_form(const Option& option);

}  // namespace client

#endif
