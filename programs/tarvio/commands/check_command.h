// tarvio check
#ifndef TARVIO_CLIENT_COMMANDS_CHECK_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_CHECK_COMMAND_H

#include "commands/options.h"

namespace client {

// Returns the exit status.
int run_check(const Options& options);

}  // namespace client

#endif
