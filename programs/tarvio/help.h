// Help texts.
#ifndef TARVIO_CLIENT_HELP_H
#define TARVIO_CLIENT_HELP_H

#include "options.h"

namespace client {

// The help of a command; of the whole program for Command::kNone.
const char* help_of(Command command);

}  // namespace client

#endif
