// The process that speaks to the broker. It has no rights but a socket: what it is asked it passes
// on to the process that does the work.
#ifndef TARVIO_AGENT_BROKER_LINK_H
#define TARVIO_AGENT_BROKER_LINK_H

#include "agent_settings.h"
#include "channel.h"

namespace agent {

// Becomes the user of the settings, if it is root, and works until the other process is gone.
// Returns the exit status.
int run_link(const Settings& settings, Channel channel);

}  // namespace agent

#endif
