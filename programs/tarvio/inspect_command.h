// tarvio inspect
#ifndef TARVIO_CLIENT_INSPECT_COMMAND_H
#define TARVIO_CLIENT_INSPECT_COMMAND_H

#include "options.h"

namespace client {

// Returns the exit status.
int run_inspect(const Options& options);

}  // namespace client

#endif
