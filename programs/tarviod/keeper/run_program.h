// The way of a forked child to the program of an application.
#ifndef TARVIOD_RUN_PROGRAM_H
#define TARVIOD_RUN_PROGRAM_H

#include "keeper/launch.h"

namespace tarviod {

// Waits for a byte from the channel, becomes what the settings say, and executes the program. Sends
// the failure back when it cannot.
[[noreturn]] void run_program(const Program& program, int channel);

}  // namespace tarviod

#endif
