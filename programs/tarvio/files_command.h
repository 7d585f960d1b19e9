// tarvio files
#ifndef TARVIO_CLIENT_FILES_COMMAND_H
#define TARVIO_CLIENT_FILES_COMMAND_H

#include "options.h"

namespace client {

// Returns the exit status.
int run_files(const Options& options);

}  // namespace client

#endif
