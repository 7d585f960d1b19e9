// What the resident manager costs: memory and descriptors with its applications started, and after
// many status requests.

#include "support/figures.h"
#include "support/installed.h"
#include "support/manager.h"
#include "support/processes.h"
#include "support/say.h"
#include "tarvio/tarvio.h"

namespace {

using tarvio_bench::descriptors_of;
using tarvio_bench::kRoundingKib;
using tarvio_bench::Memory;
using tarvio_bench::memory_of;
using tarvio_bench::report;
using tarvio_bench::text_of;

constexpr int kApplications = 50;
constexpr int kRequests = 1'000'000;
constexpr int kWarmUp = 1000;
constexpr long kMaxPssKib = 1024;
constexpr long kMaxTogetherKib = 1126;

void request_statuses(int count) {
  for (int at = 0; at < count; ++at) {
    tq_list_t* list = tq_list_create();
    tq_lib_list_all_status(list);
    if (tq_list_size(list) != kApplications) tarvio_bench::die("wrong number of statuses");
    tq_status_list_free(list);
  }
}

}  // namespace

int main() {
  tarvio_bench::install_applications(kApplications);
  tarvio_bench::watch_a_log();
  const tarvio_bench::Manager manager(kApplications);
  request_statuses(kWarmUp);
  const pid_t pid = manager.pid();
  const long descriptors_before = descriptors_of(pid);
  const Memory before = memory_of({pid});
  const Memory together = memory_of(manager.processes());
  request_statuses(kRequests);
  const long descriptors_after = descriptors_of(pid);
  const Memory after = memory_of({pid});
  if (manager.running() != kApplications) tarvio_bench::die("the applications ended");

  const bool small =
      report("manager with 50 applications: memory", text_of("%ld KiB", kMaxPssKib),
             text_of("%ld KiB (%ld its own; RSS %ld)", before.kib, before.own_kib, before.rss_kib),
             before.kib > 0 && before.kib < kMaxPssKib);
  const bool small_together =
      report("manager, keeper and log reader: memory", text_of("%ld KiB", kMaxTogetherKib),
             text_of("%ld KiB (%ld their own)", together.kib, together.own_kib),
             manager.processes().size() == 3 && together.kib > 0 && together.kib < kMaxTogetherKib);
  const bool closed = report(
      "descriptors after 1,000,000 status requests", text_of("%ld, as before", descriptors_before),
      text_of("%ld", descriptors_after), descriptors_before == descriptors_after);
  const bool kept =
      report("memory of the manager after 1,000,000 status requests",
             text_of("%ld KiB + %ld", before.own_kib, kRoundingKib),
             text_of("%ld KiB", after.own_kib), after.own_kib <= before.own_kib + kRoundingKib);
  return small && small_together && closed && kept ? 0 : 1;
}
