// tarvio inspect
#ifndef TARVIO_CLIENT_COMMANDS_INSPECT_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_INSPECT_COMMAND_H

#include "commands/options.h"

namespace client {

// Returns the exit status.
int run_inspect(const Options& options);

}  // namespace client

#endif
