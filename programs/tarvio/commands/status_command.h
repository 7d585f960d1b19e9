// tarvio status
#ifndef TARVIO_CLIENT_COMMANDS_STATUS_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_STATUS_COMMAND_H

#include "commands/options.h"

namespace client {

// Returns the exit status.
int run_status(const Options& options);

}  // namespace client

#endif
