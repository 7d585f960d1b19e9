// What the resident manager costs: memory and descriptors with its applications started, and what
// status requests leave behind.

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
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

using tarvio_bench::report;
using tarvio_bench::text_of;

constexpr int kApplications = 50;
constexpr int kRequests = 100000;
constexpr int kWarmUp = 1000;
constexpr long kMaxPssKib = 1024;
constexpr long kMaxTogetherKib = 1126;
// A page more or less of the heap does not come from the requests.
constexpr double kRounding = 1.01;

struct Memory {
  long kib = 0;      // the processes' part of what they map
  long rss_kib = 0;  // all that they map
  long own_kib = 0;  // what no file backs
};

// The proportional set size, but with the library as a whole, once: this process maps it too, and
// would share its size.
Memory memory_of(const std::vector<pid_t>& processes) {
  Memory memory;
  long library_kib = 0;
  for (const pid_t pid : processes) {
    long mapped_kib = 0;
    bool is_library = false;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/smaps");
    for (std::string line; std::getline(maps, line);) {
      long kib = 0;
      if (std::sscanf(line.c_str(), "Pss: %ld", &kib) == 1 && !is_library) memory.kib += kib;
      if (std::sscanf(line.c_str(), "Rss: %ld", &kib) == 1) {
        memory.rss_kib += kib;
        if (is_library) mapped_kib += kib;
      }
      if (std::sscanf(line.c_str(), "Anonymous: %ld", &kib) == 1) memory.own_kib += kib;
      // "from-to rights offset device inode path" heads the lines of a mapping.
      if (line.find('-') < line.find(' '))
        is_library = line.find("/libtarvio.so") != std::string::npos;
    }
    library_kib = std::max(library_kib, mapped_kib);
  }
  memory.kib += library_kib;
  return memory;
}

long count_descriptors(pid_t pid) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
  return std::distance(begin(entries), end(entries));
}

// The number once it is stable: the client sees the end of a connection before the manager has
// closed it.
long descriptors_of(pid_t pid) {
  constexpr int kStableLooks = 5;
  long count = count_descriptors(pid);
  for (int stable = 0; stable < kStableLooks;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const long next = count_descriptors(pid);
    stable = next == count ? stable + 1 : 0;
    count = next;
  }
  return count;
}

void request_statuses(int count) {
  for (int at = 0; at < count; ++at) {
    tq_list_t* list = tq_list_create();
    tq_lib_list_all_status(list);
    if (tq_list_size(list) != kApplications) tarvio_bench::die("wrong number of statuses");
    tq_status_list_free(list);
  }
}

// What an allocation takes from the heap, including the size that malloc stores beside it.
size_t heap_bytes(void* memory) { return malloc_usable_size(memory) + sizeof(size_t); }

// The record that each request leaves allocated (oddity 122): the first of the list.
size_t record_bytes() {
  const std::string name = tarvio_bench::package_name(0);
  tq_status* record =
      tq_add_tq_status(TQ_STATE_NORMAL, TQ_STATUS_TYPE_APPLICATION, name.c_str(), "started app");
  const size_t bytes = heap_bytes(record) + heap_bytes(record->name) + heap_bytes(record->detail);
  tq_delete_tq_status(&record);
  return bytes;
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

  const double per_request = static_cast<double>(after.own_kib - before.own_kib) * 1024 / kRequests;
  const size_t record = record_bytes();

  const bool small =
      report("manager with 50 applications: memory", text_of("%ld KiB", kMaxPssKib),
             text_of("%ld KiB (%ld its own; RSS %ld)", before.kib, before.own_kib, before.rss_kib),
             before.kib > 0 && before.kib < kMaxPssKib);
  const bool small_together =
      report("manager, keeper and log reader: memory", text_of("%ld KiB", kMaxTogetherKib),
             text_of("%ld KiB (%ld their own)", together.kib, together.own_kib),
             manager.processes().size() == 3 && together.kib > 0 && together.kib < kMaxTogetherKib);
  const bool closed = report(
      "descriptors after 100,000 status requests", text_of("%ld, as before", descriptors_before),
      text_of("%ld", descriptors_after), descriptors_before == descriptors_after);
  const bool kept = report(
      "heap growth for each status request", text_of("%zu bytes, the record", record),
      text_of("%.2f bytes", per_request), per_request <= static_cast<double>(record) * kRounding);
  return small && small_together && closed && kept ? 0 : 1;
}
