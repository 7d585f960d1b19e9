// One status request over the socket, compared with a bare server and client that exchange the same
// bytes, and one after clients that connect and are silent. Each server is a process.

#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "support/figures.h"
#include "support/installed.h"
#include "support/manager.h"
#include "support/say.h"
#include "tarvio/tarvio.h"

namespace {

constexpr int kApplications = 20;
constexpr char kBarePath[] = "/usr/local/share/tarvio/bare";
constexpr std::string_view kRequest = "status_all\n";
constexpr int kBacklog = 5;
constexpr size_t kSilent = 300;
constexpr int kRounds = 20;
constexpr double kMaxMsAfterSilent = 100;

sockaddr_un address_of(const char* path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  return address;
}

// Reads the reply into one buffer and returns the number of its bytes.
size_t request_bare(const sockaddr_un& address) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  size_t size = 0;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      write(fd, kRequest.data(), kRequest.size()) == static_cast<ssize_t>(kRequest.size()) &&
      shutdown(fd, SHUT_WR) == 0) {
    char bytes[4096];
    for (ssize_t count = 0; (count = read(fd, bytes, sizeof bytes)) > 0;)
      size += static_cast<size_t>(count);
    benchmark::DoNotOptimize(bytes);
  }
  (void)close(fd);
  return size;
}

void serve_bare(int listener, const std::string& reply) {
  while (true) {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) _exit(1);
    char bytes[4096];
    while (read(fd, bytes, sizeof bytes) > 0) benchmark::DoNotOptimize(bytes);
    if (write(fd, reply.data(), reply.size()) != static_cast<ssize_t>(reply.size())) _exit(1);
    (void)close(fd);
  }
}

class BareServer {
 public:
  explicit BareServer(const std::string& reply) {
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(kBarePath);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, kBacklog) != 0)
      tarvio_bench::die("cannot listen");
    pid_ = fork();
    if (pid_ < 0) tarvio_bench::die("cannot fork");
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      serve_bare(listener, reply);
    }
    (void)close(listener);
  }
  BareServer(const BareServer&) = delete;
  BareServer& operator=(const BareServer&) = delete;
  ~BareServer() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

 private:
  pid_t pid_;
};

void status_request(benchmark::State& state) {
  for (auto _ : state) {
    tq_list_t* list = tq_list_create();
    tq_lib_list_all_status(list);
    if (tq_list_size(list) != kApplications) state.SkipWithError("wrong number of statuses");
    tq_status_list_free(list);
  }
}

void bare_exchange(benchmark::State& state, const char* path, size_t expected) {
  const sockaddr_un address = address_of(path);
  for (auto _ : state) {
    if (request_bare(address) != expected) state.SkipWithError("wrong reply");
  }
}

double ms_of_a_request(size_t expected) {
  const auto begin = std::chrono::steady_clock::now();
  if (request_bare(address_of(TQ_COM_SOCKET_PATH)) != expected) tarvio_bench::die("wrong reply");
  const auto end = std::chrono::steady_clock::now();
  return std::chrono::duration<double, std::milli>(end - begin).count();
}

bool report_silent_clients(size_t expected) {
  const sockaddr_un address = address_of(TQ_COM_SOCKET_PATH);
  double worst_ms = 0;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<int> silent(kSilent);
    for (int& fd : silent) {
      fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        tarvio_bench::die("cannot connect");
    }
    worst_ms = std::max(worst_ms, ms_of_a_request(expected));
    for (const int fd : silent) (void)close(fd);
  }
  return tarvio_bench::report("status request after 300 silent clients",
                              tarvio_bench::text_of("%.0f ms", kMaxMsAfterSilent),
                              tarvio_bench::text_of("%.2f ms at most", worst_ms),
                              worst_ms < kMaxMsAfterSilent);
}

}  // namespace

int main(int argc, char** argv) {
  tarvio_bench::install_applications(kApplications);
  const tarvio_bench::Manager manager(kApplications);
  const std::string reply = tarvio_bench::ask_manager("status_all");
  const BareServer bare(reply);
  benchmark::RegisterBenchmark("status_request", status_request)->UseRealTime();
  benchmark::RegisterBenchmark("bare_exchange", bare_exchange, kBarePath, reply.size())
      ->UseRealTime();
  // Shows how much of the time the server takes.
  benchmark::RegisterBenchmark("bare_client_of_the_manager", bare_exchange, TQ_COM_SOCKET_PATH,
                               reply.size())
      ->UseRealTime();
  const int status = tarvio_bench::run_figures(argc, argv,
                                               {{.title = "status request, 20 applications",
                                                 .ours = "status_request",
                                                 .floor = "bare_exchange",
                                                 .times = 1.5}});
  return report_silent_clients(reply.size()) ? status : std::max(status, 1);
}
