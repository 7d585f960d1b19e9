// tarvio list
#ifndef TARVIO_CLIENT_LIST_COMMAND_H
#define TARVIO_CLIENT_LIST_COMMAND_H

#include "options.h"

namespace client {

// Returns the exit status.
int run_list(const Options& options);

}  // namespace client

#endif
