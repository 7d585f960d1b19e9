// tarvio pack
#ifndef TARVIO_CLIENT_COMMANDS_PACK_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_PACK_COMMAND_H

#include "commands/options.h"

namespace client {

// Returns the exit status.
int run_pack(const Options& options);

}  // namespace client

#endif
