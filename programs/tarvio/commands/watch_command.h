// tarvio status --watch
#ifndef TARVIO_CLIENT_COMMANDS_WATCH_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_WATCH_COMMAND_H

#include "commands/options.h"

namespace client {

// Shows statuses as they change, until a signal ends it. Returns the exit status of a watch that
// could not begin or go on.
int run_watch(const Options& options);

}  // namespace client

#endif
