// tarvio list
#ifndef TARVIO_CLIENT_COMMANDS_LIST_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_LIST_COMMAND_H

#include "commands/options.h"

namespace client {

// Returns the exit status.
int run_list(const Options& options);

}  // namespace client

#endif
