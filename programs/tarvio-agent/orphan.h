// The work on packages or flash memory that an agent has left which was killed: it goes on without
// the agent, and nothing may be done beside it.
#ifndef TARVIO_AGENT_ORPHAN_H
#define TARVIO_AGENT_ORPHAN_H

#include <sys/types.h>

#include <string>

namespace agent {

// Remembers the process that works, as well as that goes.
void write_working(const std::string& directory, pid_t process);
void remove_working(const std::string& directory);

// Whether the process that is remembered is still there.
bool has_orphan(const std::string& directory);

}  // namespace agent

#endif
