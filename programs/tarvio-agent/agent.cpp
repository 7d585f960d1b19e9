// tarvio-agent: connects the board to a broker.
#include <fcntl.h>
#include <getopt.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "agent_settings.h"
#include "channel.h"
#include "link.h"
#include "say.h"
#include "worker.h"

namespace {

using agent::Channel;
using agent::Settings;

constexpr int kUsage = 64;
constexpr char kHelp[] =
    "usage: tarvio-agent [OPTION]...\n"
    "\n"
    "Connects this device to an MQTT broker: keeps its applications, packages and\n"
    "figures there, and does what operators ask of it with 'tarvio-fleet'.\n"
    "\n"
    "      --config FILE      settings; default /etc/tarvio/agent.conf\n"
    "      --check-config     only check the settings\n"
    "  -h, --help             print this help\n"
    "  -V, --version          print the version\n"
    "\n"
    "exit status: 0 ended by SIGTERM or settings right, 1 failed, 64 wrong command\n"
    "line\n";

// 0 or -1 as from fork, with the socket of this process.
pid_t fork_apart(tarvio::Fd& socket) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return -1;
  tarvio::Fd one(ends[0]);
  tarvio::Fd other(ends[1]);
  const pid_t child = fork();
  socket = std::move(child == 0 ? other : one);
  return child;
}

int run(const Settings& settings) {
  (void)signal(SIGPIPE, SIG_IGN);
  tarvio::Fd socket;
  const pid_t link = fork_apart(socket);
  if (link < 0) {
    throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (link == 0) return agent::run_link(settings, Channel(std::move(socket)));
  return agent::run_worker(settings, Channel(std::move(socket)));
}

}  // namespace

int main(int argc, char** argv) {
  enum { kConfig = 1000, kCheck };
  const option options[] = {{"config", required_argument, nullptr, kConfig},
                            {"check-config", no_argument, nullptr, kCheck},
                            {"help", no_argument, nullptr, 'h'},
                            {"version", no_argument, nullptr, 'V'},
                            {nullptr, 0, nullptr, 0}};
  std::string file = agent::kSettingsFile;
  bool is_check = false;
  for (int letter = 0; (letter = getopt_long(argc, argv, "hV", options, nullptr)) != -1;) {
    switch (letter) {
      case kConfig:
        file = optarg;
        break;
      case kCheck:
        is_check = true;
        break;
      case 'h':
        return std::fputs(kHelp, stdout) < 0 || std::fflush(stdout) != 0;
      case 'V':
        return std::puts("tarvio-agent " TARVIO_VERSION) < 0 || std::fflush(stdout) != 0;
      default:
        std::fputs("try 'tarvio-agent --help'\n", stderr);
        return kUsage;
    }
  }
  if (optind < argc) {
    (void)std::fprintf(stderr,
                       "tarvio-agent: unexpected argument '%s'; try 'tarvio-agent --help'\n",
                       argv[optind]);
    return kUsage;
  }
  try {
    const Settings settings = agent::read_settings(file);
    return is_check ? EXIT_SUCCESS : run(settings);
  } catch (const std::exception& error) {
    agent::say(error.what());
    return EXIT_FAILURE;
  }
}
