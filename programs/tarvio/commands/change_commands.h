// tarvio install and tarvio remove
#ifndef TARVIO_CLIENT_COMMANDS_CHANGE_COMMANDS_H
#define TARVIO_CLIENT_COMMANDS_CHANGE_COMMANDS_H

#include "commands/options.h"

namespace client {

// Both return the exit status.
int run_install(const Options& options);
int run_remove(const Options& options);

}  // namespace client

#endif
