#include "support/programs/tarviod.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "support/children.h"
#include "support/com/sockets.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

constexpr char kReady[] = "answering on " TQ_COM_SOCKET_PATH "\n";

void become_stream(const std::string& file, int flags, int stream) {
  ::dup2(::open(file.c_str(), flags | O_CLOEXEC, 0644), stream);
}

[[noreturn]] void run(const std::vector<std::string>& arguments,
                      const std::function<void()>& prepare, const TempDir& directory) {
  constexpr int kToFile = O_WRONLY | O_CREAT | O_APPEND;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  become_stream("/dev/null", O_RDONLY, STDIN_FILENO);
  become_stream(directory / "output", kToFile, STDOUT_FILENO);
  become_stream(directory / "errors", kToFile, STDERR_FILENO);
  prepare();
  ::close_range(STDERR_FILENO + 1, ~0U, 0);
  std::vector<char*> argv = {const_cast<char*>("tarviod")};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  ::execv(TARVIOD, argv.data());
  ::_exit(126);
}

}  // namespace

Tarviod::Tarviod(const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  write_file(directory_ / "output", "");
  write_file(directory_ / "errors", "");
  pid_ = ::fork();
  if (pid_ == 0) run(arguments, prepare, directory_);
}

Tarviod::~Tarviod() {
  if (has_ended()) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

testing::AssertionResult Tarviod::answers() {
  const bool said =
      eventually([this] { return output().find(kReady) != std::string::npos || has_ended(); });
  if (said && !ended_) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << (ended_ ? "ended" : "silent") << ", output: " << output() << ", errors: " << errors();
}

void Tarviod::send(int signal) const {
  if (::kill(pid_, signal) != 0) ADD_FAILURE() << "kill: " << std::strerror(errno);
}

bool Tarviod::has_ended() {
  if (!ended_) ended_ = ::waitpid(pid_, &status_, WNOHANG) == pid_;
  return ended_;
}

int Tarviod::end() {
  if (!eventually([this] { return has_ended(); })) {
    ADD_FAILURE() << "does not end, output: " << output() << ", errors: " << errors();
    return -1;
  }
  return WIFEXITED(status_) ? WEXITSTATUS(status_) : -1;
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
