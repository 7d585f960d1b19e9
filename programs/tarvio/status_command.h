// tarvio status
#ifndef TARVIO_CLIENT_STATUS_COMMAND_H
#define TARVIO_CLIENT_STATUS_COMMAND_H

#include "options.h"

namespace client {

// Returns the exit status.
int run_status(const Options& options);

}  // namespace client

#endif
