#ifndef TARVIO_CLIENT_COMMANDS_AREAS_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_AREAS_COMMAND_H

#include "commands/options.h"

namespace client {

// Lists the areas of the flash memory; returns the exit status.
int run_areas(const Options& options);

}  // namespace client

#endif
