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

[[noreturn]] void become_link(const tarvio::Fd& socket, const std::string& file) {
  // The copy outlives the change of the program.
  const int kept = dup(socket.get());
  const std::string channel = std::to_string(kept);
  (void)execlp(agent::kLinkProgram, agent::kLinkProgram, file.c_str(), channel.c_str(), nullptr);
  agent::say(std::string("cannot start '") + agent::kLinkProgram + "': " + std::strerror(errno));
  _exit(EXIT_FAILURE);
}

// Another program, so that this process has no library for TLS in its memory.
Channel start_link(const std::string& file) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::runtime_error(std::string("cannot make a socket: ") + std::strerror(errno));
  }
  tarvio::Fd own(ends[0]);
  const tarvio::Fd other(ends[1]);
  const pid_t link = fork();
  if (link < 0) {
    throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (link == 0) become_link(other, file);
  return Channel(std::move(own));
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
    if (is_check) return EXIT_SUCCESS;
    (void)signal(SIGPIPE, SIG_IGN);
    return agent::run_worker(settings, start_link(file));
  } catch (const std::exception& error) {
    agent::say(error.what());
    return EXIT_FAILURE;
  }
}
