// The manager's look at what is installed now, compared with the bare listing of the packages.

#include <benchmark/benchmark.h>

#include "support/figures.h"
#include "support/installed.h"
#include "support/manager.h"
#include "support/say.h"
#include "tarvio/app.h"
#include "tarvio/package.h"
#include "tarvio/status_manager.h"

namespace {

constexpr int kPackages = 200;
constexpr double kMaxSeconds = 0.05;

void list_packages(benchmark::State& state) {
  for (auto _ : state) {
    tq_package_info* packages = nullptr;
    if (tq_list(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, nullptr, &packages) != 0)
      state.SkipWithError("no list");
    tq_delete_tq_package_info_recurse(&packages);
  }
}

void refresh(benchmark::State& state) {
  for (auto _ : state) {
    if (tq_refresh_applications(nullptr) != 0) state.SkipWithError("no refresh");
  }
}

void refresh_by_manager(benchmark::State& state) {
  for (auto _ : state) {
    if (!tarvio_bench::ask_manager("refresh_apps").starts_with("0\n"))
      state.SkipWithError("no refresh");
  }
}

void nothing(benchmark::State& state) {
  for (auto _ : state) benchmark::ClobberMemory();
}

BENCHMARK(nothing)->Unit(benchmark::kMillisecond);
BENCHMARK(list_packages)->Unit(benchmark::kMillisecond);
BENCHMARK(refresh)->Unit(benchmark::kMillisecond);
BENCHMARK(refresh_by_manager)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  tarvio_bench::install_applications(kPackages);
  (void)tq_setup_status_manager();
  (void)tq_setup_package_manager();
  if (tq_setup_app_manager() != 1 || tq_list_size(tq_known_applications()) != kPackages)
    tarvio_bench::die("the set-up failed");
  const tarvio_bench::Manager manager(0);
  return tarvio_bench::run_figures(argc, argv,
                                   {{.title = "refresh of 200 packages by the manager",
                                     .ours = "refresh_by_manager",
                                     .floor = "nothing",
                                     .seconds_more = kMaxSeconds},
                                    {.title = "refresh of 200 packages",
                                     .ours = "refresh",
                                     .floor = "nothing",
                                     .seconds_more = kMaxSeconds},
                                    {.title = "the same, compared with tq_list",
                                     .ours = "refresh",
                                     .floor = "list_packages",
                                     .times = 1.2}});
}
