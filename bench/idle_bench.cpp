// What wakes the manager, its keeper and its log reader while nothing happens.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/figures.h"
#include "support/installed.h"
#include "support/manager.h"
#include "support/say.h"

namespace {

using tarvio_bench::die;
using tarvio_bench::text_of;

constexpr int kApplications = 50;
constexpr std::chrono::seconds kSettled(5);
constexpr int kSeconds = 60;
constexpr int kLogPeriodSeconds = 5;
// A supervisor is told twice in this time that the manager makes progress.
constexpr int kWatchdogSeconds = 20;
// One more falls into the time, depending on when it begins.
constexpr long kMaxLooks = kSeconds / kLogPeriodSeconds + 1;
constexpr long kMaxReports = kSeconds / (kWatchdogSeconds / 2) + 1;

// A supervisor that takes no notice.
void set_supervisor() {
  constexpr sockaddr_un kAddress = {.sun_family = AF_UNIX, .sun_path = "/run/tmp/supervisor"};
  const int socket_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (bind(socket_fd, reinterpret_cast<const sockaddr*>(&kAddress), sizeof kAddress) != 0)
    die("cannot be a supervisor here");
  setenv("NOTIFY_SOCKET", kAddress.sun_path, 1);
  setenv("WATCHDOG_USEC", std::to_string(kWatchdogSeconds * 1'000'000).c_str(), 1);
  std::thread([socket_fd] {
    char text[256];
    while (read(socket_fd, text, sizeof text) > 0) continue;
  }).detach();
}

// How often all threads of a process have gone to sleep, which is once for each time they woke up.
long wake_ups_of(pid_t pid) {
  long total = 0;
  for (const auto& task :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);) {
      long count = 0;
      if (std::sscanf(line.c_str(), "voluntary_ctxt_switches: %ld", &count) == 1) total += count;
    }
  }
  return total;
}

bool report_wake_ups(const char* who, long limit, long count) {
  return tarvio_bench::report(text_of("wake-ups of the %s in %d s", who, kSeconds),
                              text_of("%ld", limit), text_of("%ld", count), count <= limit);
}

}  // namespace

int main() {
  tarvio_bench::install_applications(kApplications);
  tarvio_bench::watch_a_log();
  set_supervisor();
  const tarvio_bench::Manager manager(kApplications);
  const std::vector<pid_t> processes = manager.processes();
  if (processes.size() != 3) die("not all processes of the manager are there");
  std::this_thread::sleep_for(kSettled);
  std::vector<long> counts;
  for (const pid_t pid : processes) counts.push_back(-wake_ups_of(pid));
  std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
  for (size_t at = 0; at < processes.size(); ++at) counts[at] += wake_ups_of(processes[at]);
  if (manager.running() != kApplications) die("the applications ended");
  const bool manager_sleeps = report_wake_ups("manager", kMaxReports, counts[0]);
  const bool keeper_sleeps = report_wake_ups("keeper", 0, counts[1]);
  const bool reader_sleeps = report_wake_ups("log reader", kMaxLooks, counts[2]);
  return manager_sleeps && keeper_sleeps && reader_sleeps ? 0 : 1;
}
