// tarvio-agent-link: what tarvio-agent starts to speak to the broker.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "agent_settings.h"
#include "base/owners.h"
#include "broker_link.h"
#include "runtime/conf_file.h"
#include "say.h"

constexpr long kMaxFiles = 1 << 20;

int main(int argc, char** argv) {
  const int socket = argc == 3 ? static_cast<int>(runtime::number_of(argv[2], kMaxFiles)) : -1;
  if (socket < 0) {
    (void)std::fputs("tarvio-agent-link is started by tarvio-agent\n", stderr);
    return 64;
  }
  (void)signal(SIGPIPE, SIG_IGN);
  try {
    return agent::run_link(agent::read_settings(argv[1]), agent::Channel(tarvio::Fd(socket)));
  } catch (const std::exception& error) {
    agent::say(error.what());
    return EXIT_FAILURE;
  }
}
