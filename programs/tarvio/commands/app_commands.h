// tarvio start, stop, start-all and stop-all
#ifndef TARVIO_CLIENT_COMMANDS_APP_COMMANDS_H
#define TARVIO_CLIENT_COMMANDS_APP_COMMANDS_H

#include "commands/options.h"

namespace client {

// Returns the exit status.
int run_app_command(const Options& options);

}  // namespace client

#endif
