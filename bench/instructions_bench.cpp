// What a status request costs the manager in instructions, as valgrind counts them. Unlike a time,
// the number hardly depends on the machine and on what else it does.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/figures.h"
#include "support/installed.h"
#include "support/manager.h"
#include "support/say.h"
#include "tarvio/tarvio.h"

namespace {

constexpr char kTitle[] = "instructions of a status request";
constexpr int kApplications = 20;
constexpr int kRequests = 1000;
constexpr long kMaxInstructions = 28200;

void request_statuses(int count) {
  for (int at = 0; at < count; ++at) {
    tq_list_t* list = tq_list_create();
    tq_lib_list_all_status(list);
    if (tq_list_size(list) != kApplications) tarvio_bench::die("wrong number of statuses");
    tq_status_list_free(list);
  }
}

long long read_total(const std::string& path) {
  std::ifstream counts(path);
  long long total = 0;
  for (std::string line; std::getline(counts, line);)
    if (std::sscanf(line.c_str(), "totals: %lld", &total) == 1) return total;
  tarvio_bench::die("valgrind wrote no total to " + path);
}

// Of the whole life of a manager that answers this many requests. It finds the keeper of another
// one, since valgrind cannot execute /proc/self/exe.
long long count_instructions(int requests) {
  tarvio_bench::Manager before(kApplications);
  before.end();
  const std::string counts = std::filesystem::temp_directory_path() / "instructions";
  tarvio_bench::Manager manager(kApplications, {"valgrind", "-q", "--tool=callgrind",
                                                "--callgrind-out-file=" + counts + ".%p"});
  request_statuses(requests);
  manager.end();
  return read_total(counts + "." + std::to_string(manager.pid()));
}

}  // namespace

int main() {
  const std::string limit = tarvio_bench::text_of("%ld", kMaxInstructions);
  if (std::system("command -v valgrind >/dev/null") != 0) {
    tarvio_bench::report_skipped(kTitle, limit, "needs valgrind (apt-get install valgrind)");
    return 0;
  }
  tarvio_bench::install_applications(kApplications);
  // The difference of two runs leaves out the start, the end and the applications.
  const long long once = count_instructions(kRequests);
  const long per_request =
      static_cast<long>((count_instructions(2 * kRequests) - once) / kRequests);
  const bool holds = tarvio_bench::report(kTitle, limit, tarvio_bench::text_of("%ld", per_request),
                                          per_request > 0 && per_request <= kMaxInstructions);
  return holds ? 0 : 1;
}
