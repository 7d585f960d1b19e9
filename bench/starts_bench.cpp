// What starts leave behind, of applications that end at once.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/figures.h"
#include "support/installed.h"
#include "support/manager.h"
#include "support/say.h"
#include "tarvio/tarvio.h"

namespace {

using tarvio_bench::die;
using tarvio_bench::text_of;

constexpr int kApplications = 50;
constexpr int kStarts = 100'000;
constexpr int kTries = 100;
constexpr std::chrono::milliseconds kPause(20);

// Of all applications together, as the manager says.
int started() {
  std::ifstream state("/run/tarvio/state");
  int total = 0;
  for (std::string line; std::getline(state, line);) {
    int starts = 0;
    if (std::sscanf(line.c_str(), "app\t%*s\t%*s\t%*d\t%*d\t%d", &starts) == 1) total += starts;
  }
  return total;
}

// One that has not ended yet is not started again.
int start_each() {
  for (int number = 0; number < kApplications; ++number) {
    const std::string name = tarvio_bench::package_name(number);
    if (tq_lib_start_app(name.c_str()) != 0) die("cannot start " + name);
  }
  return started();
}

long count_descriptors(pid_t pid) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
  return std::distance(begin(entries), end(entries));
}

// Waits for what is about to end; the last number counts.
bool has_at_most(pid_t pid, long limit, long& count) {
  for (int tries = 0; tries < kTries; ++tries) {
    count = count_descriptors(pid);
    if (count <= limit) return true;
    std::this_thread::sleep_for(kPause);
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  const int starts = argc > 1 ? std::atoi(argv[1]) : kStarts;
  tarvio_bench::install_applications(kApplications, "/bin/true");
  const tarvio_bench::Manager manager(0, {});
  const std::vector<pid_t> processes = manager.processes();
  // Idle, before the first start.
  std::vector<long> before;
  for (const pid_t pid : processes) before.push_back(count_descriptors(pid));
  const auto begin = std::chrono::steady_clock::now();
  int count = 0;
  do count = start_each();
  while (count < starts);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  bool holds = true;
  constexpr const char* kNames[] = {"manager", "keeper"};
  for (size_t at = 0; at < before.size(); ++at) {
    long after = 0;
    const bool is_as_before = has_at_most(processes[at], before[at], after);
    holds =
        tarvio_bench::report(text_of("descriptors of the %s after %d starts", kNames[at], count),
                             text_of("%ld, as before", before[at]),
                             text_of("%ld (%.2f ms a start)", after, taken.count() * 1000 / count),
                             is_as_before) &&
        holds;
  }
  return holds ? 0 : 1;
}
