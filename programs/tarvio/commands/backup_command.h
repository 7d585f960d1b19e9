#ifndef TARVIO_CLIENT_COMMANDS_BACKUP_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_BACKUP_COMMAND_H

#include "commands/options.h"

namespace client {

// Saves areas of the flash memory into an image package; returns the exit status.
int run_backup(const Options& options);

}  // namespace client

#endif
