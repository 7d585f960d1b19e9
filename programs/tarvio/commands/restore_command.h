#ifndef TARVIO_CLIENT_COMMANDS_RESTORE_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_RESTORE_COMMAND_H

#include "commands/options.h"

namespace client {

// Writes an image package to the flash memory; returns the exit status.
int run_restore(const Options& options);

}  // namespace client

#endif
