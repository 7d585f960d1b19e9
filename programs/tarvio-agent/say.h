// What the agent says of itself, for the system's log.
#ifndef TARVIO_AGENT_SAY_H
#define TARVIO_AGENT_SAY_H

#include <cstdio>
#include <string>

namespace agent {

inline void say(const std::string& text) {
  (void)std::fprintf(stderr, "tarvio-agent: %s\n", text.c_str());
}

}  // namespace agent

#endif
