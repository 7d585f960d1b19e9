// The process that does what the board is asked, and says what the board is like.
#ifndef TARVIO_AGENT_WORKER_H
#define TARVIO_AGENT_WORKER_H

#include "agent_settings.h"
#include "channel.h"

namespace agent {

// Works until SIGTERM or SIGINT has come and what was begun is done, or the link is gone. Returns
// the exit status.
int run_worker(const Settings& settings, Channel channel);

}  // namespace agent

#endif
