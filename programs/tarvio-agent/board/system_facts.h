// What the board is, for the topic 'system'.
#ifndef TARVIO_AGENT_SYSTEM_FACTS_H
#define TARVIO_AGENT_SYSTEM_FACTS_H

#include <string>
#include <string_view>

#include "agent_settings.h"
#include "terminal/json.h"

namespace agent {

using client::Json;

// The root file system: what the kernel was told, and what is mounted. Members that are not known
// are null.
Json root_facts(std::string_view command_line, std::string_view mounts);

// packages_root   of the installed system; empty for the running one.
// client_version  of tarvio, which a process must be asked for; empty when it is not known.
Json system_facts(const Settings& settings, const std::string& packages_root,
                  const std::string& client_version);

}  // namespace agent

#endif
