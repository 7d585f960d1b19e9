#include "support/programs/tarviod.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "support/children.h"
#include "support/com/sockets.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

constexpr char kReady[] = "answering on " TQ_COM_SOCKET_PATH "\n";

std::vector<std::string> line_of(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), TARVIOD);
  return arguments;
}

}  // namespace

Tarviod::Tarviod(const std::vector<std::string>& arguments, const std::function<void()>& prepare)
    : BackgroundProgram(line_of(arguments), prepare) {}

testing::AssertionResult Tarviod::answers() {
  const bool said =
      eventually([this] { return output().find(kReady) != std::string::npos || has_ended(); });
  if (said && !has_ended()) return testing::AssertionSuccess();
  return testing::AssertionFailure() << (has_ended() ? "ended" : "silent")
                                     << ", output: " << output() << ", errors: " << errors();
}

Ended run_tarviod(const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  Tarviod manager(arguments, prepare);
  const int status = manager.end();
  return {status, manager.output(), manager.errors()};
}

std::function<void()> with_module(const std::string& module, const std::string& go) {
  return [module, go] {
    ::setenv("LD_PRELOAD", module.c_str(), 1);
    ::setenv("TARVIO_TEST_GO", go.c_str(), 1);
    // AddressSanitizer wants to be the first to be loaded, which the module is now.
    const char* options = std::getenv("ASAN_OPTIONS");
    const std::string others = options == nullptr ? "" : options;
    ::setenv("ASAN_OPTIONS", (others + ":verify_asan_link_order=0").c_str(), 1);
  };
}

testing::AssertionResult is_listened_to() {
  const sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = TQ_COM_SOCKET_PATH};
  const bool listens = eventually([&] {
    const Socket socket = new_socket();
    return ::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  });
  return listens ? testing::AssertionSuccess() : testing::AssertionFailure() << "nobody listens";
}

pid_t listening_process() {
  const Socket socket = connect_to(TQ_COM_SOCKET_PATH);
  ucred peer = {};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket.fd(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
    ADD_FAILURE() << "getsockopt: " << std::strerror(errno);
  return peer.pid;
}

std::string status_of(const std::string& application) {
  const std::string statuses = "\n" + ask(TQ_COM_SOCKET_PATH, "status_all\n");
  const std::string name = "\n" + application + "\n";
  const size_t found = statuses.find(name);
  if (found == std::string::npos) return "";
  const size_t state = found + name.size();
  const size_t detail = statuses.find('\n', state) + 1;
  return statuses.substr(state, statuses.find('\n', detail) + 1 - state);
}

}  // namespace tarvio_test
