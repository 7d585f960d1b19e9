// Listing the installed packages, compared with a bare read of the same files.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "support/figures.h"
#include "support/installed.h"
#include "tarvio/package.h"

namespace {

using tarvio_bench::kInfoDirectory;

constexpr int kPackages = 5000;
constexpr std::string_view kSuffix = ".control";

void list_packages(benchmark::State& state) {
  for (auto _ : state) {
    tq_package_info* packages = nullptr;
    const int code = tq_list(TQ_CATEGORY_ANY, TQ_SUBCATEGORY_ANY, nullptr, &packages);
    state.PauseTiming();
    int count = 0;
    for (const tq_package_info* at = packages; at != nullptr; at = at->next) ++count;
    tq_delete_tq_package_info_recurse(&packages);
    if (code != 0 || count != kPackages) state.SkipWithError("wrong list");
    state.ResumeTiming();
  }
}

void read_lines(const char* path) {
  FILE* file = std::fopen(path, "rbe");
  if (file == nullptr) return;
  char line[256];
  while (std::fgets(line, sizeof line, file) != nullptr) benchmark::DoNotOptimize(line);
  (void)std::fclose(file);
}

void read_bytes(const char* path) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  char bytes[4096];
  while (read(fd, bytes, sizeof bytes) > 0) benchmark::DoNotOptimize(bytes);
  (void)close(fd);
}

int is_control_file(const dirent* entry) {
  const std::string_view name = entry->d_name;
  return name.size() > kSuffix.size() && name.ends_with(kSuffix) ? 1 : 0;
}

void stat_path(const char* path) {
  struct stat status = {};
  (void)stat(path, &status);
  benchmark::DoNotOptimize(status);
}

void read_package(const dirent& entry, void (*read_file)(const char* path)) {
  const int length = static_cast<int>(std::string_view(entry.d_name).size() - kSuffix.size());
  for (const char* suffix : {".control", ".tqcontrol", ".tqstartapp", ".tqstopapp"}) {
    char path[512];
    (void)std::snprintf(path, sizeof path, "%s/%.*s%s", kInfoDirectory, length, entry.d_name,
                        suffix);
    stat_path(path);
    if (std::string_view(suffix).ends_with("control")) read_file(path);
  }
}

void bare_loop(benchmark::State& state, void (*read_file)(const char* path)) {
  for (auto _ : state) {
    dirent** entries = nullptr;
    const int count = scandir(kInfoDirectory, &entries, is_control_file, alphasort);
    if (count != kPackages) return state.SkipWithError("wrong number of entries");
    for (int at = 0; at < count; ++at) {
      read_package(*entries[at], read_file);
      std::free(entries[at]);
    }
    std::free(entries);
  }
}

BENCHMARK(list_packages)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(bare_loop, fgets, read_lines)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(bare_loop, read, read_bytes)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  tarvio_bench::install_applications(kPackages);
  (void)tq_setup_package_manager();
  return tarvio_bench::run_figures(argc, argv,
                                   {{.title = "tq_list over 5,000 packages",
                                     .ours = "list_packages",
                                     .floor = "bare_loop/fgets",
                                     .times = 1.5}});
}
