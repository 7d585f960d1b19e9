// The process that speaks to the broker. It has no rights but a socket: what it is asked it passes
// on to the process that does the work.
#ifndef TARVIO_AGENT_LINK_H
#define TARVIO_AGENT_LINK_H

#include "agent_settings.h"
#include "channel.h"

namespace agent {

// The program of that process; its operands are the file of the settings and the number of the
// descriptor of the channel.
inline constexpr char kLinkProgram[] = "tarvio-agent-link";

// Becomes the user of the settings, if it is root, and works until the other process is gone.
// Returns the exit status.
int run_link(const Settings& settings, Channel channel);

}  // namespace agent

#endif
