// What starts leave behind, of applications that end at once.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "support/figures.h"
#include "support/installed.h"
#include "support/manager.h"
#include "support/processes.h"
#include "support/say.h"
#include "tarvio/tarvio.h"

namespace {

using tarvio_bench::die;
using tarvio_bench::kRoundingKib;
using tarvio_bench::report;
using tarvio_bench::text_of;

constexpr int kApplications = 50;
constexpr int kStarts = 100'000;
constexpr int kWarmUp = 1000;

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

struct Figures {
  long descriptors = 0;  // before the first start
  long own_kib = 0;      // after the first ones
};

}  // namespace

int main(int argc, char** argv) {
  const int starts = argc > 1 ? std::atoi(argv[1]) : kStarts;
  tarvio_bench::install_applications(kApplications, "/bin/true");
  const tarvio_bench::Manager manager(0, {});
  const std::vector<pid_t> processes = manager.processes();
  std::vector<Figures> before(processes.size());
  for (size_t at = 0; at < before.size(); ++at)
    before[at].descriptors = tarvio_bench::descriptors_of(processes[at]);
  while (start_each() < kWarmUp) continue;
  for (size_t at = 0; at < before.size(); ++at)
    before[at].own_kib = tarvio_bench::memory_of({processes[at]}).own_kib;
  const auto begin = std::chrono::steady_clock::now();
  int count = 0;
  do count = start_each();
  while (count < starts);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  bool holds = true;
  constexpr const char* kNames[] = {"manager", "keeper"};
  for (size_t at = 0; at < before.size(); ++at) {
    const Figures& was = before[at];
    const long descriptors = tarvio_bench::descriptors_of(processes[at]);
    const long own_kib = tarvio_bench::memory_of({processes[at]}).own_kib;
    const bool is_closed =
        report(text_of("descriptors of the %s after %d starts", kNames[at], count),
               text_of("%ld, as before", was.descriptors),
               text_of("%ld (%.2f ms a start)", descriptors, taken.count() * 1000 / count),
               descriptors <= was.descriptors);
    const bool is_freed =
        report(text_of("memory of the %s after %d starts", kNames[at], count),
               text_of("%ld KiB + %ld", was.own_kib, kRoundingKib), text_of("%ld KiB", own_kib),
               own_kib <= was.own_kib + kRoundingKib);
    holds = holds && is_closed && is_freed;
  }
  return holds ? 0 : 1;
}
