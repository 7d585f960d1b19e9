// tarvio files
#ifndef TARVIO_CLIENT_COMMANDS_FILES_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_FILES_COMMAND_H

#include "commands/options.h"

namespace client {

// Returns the exit status.
int run_files(const Options& options);

}  // namespace client

#endif
