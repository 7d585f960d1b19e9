#ifndef TARVIO_CLIENT_PROGRAM_H
#define TARVIO_CLIENT_PROGRAM_H

namespace client {

// All of tarvio; returns the exit status.
int run_program(int argc, const char* const* argv);

}  // namespace client

#endif
