#include "support/processes.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace tarvio_bench {
namespace {

long count_descriptors(pid_t pid) {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
  return std::distance(begin(entries), end(entries));
}

}  // namespace

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

}  // namespace tarvio_bench
