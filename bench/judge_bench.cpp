// Judging what tools print, held against a bare search for the same texts in the same lines.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/figures.h"
#include "support/say.h"
#include "tarvio/error.h"
#include "tarvio/list.h"
#include "tarvio/log.h"
#include "tarvio/opkg.h"
#include "tarvio/process.h"

namespace {

constexpr int kFew = 1000;
constexpr int kMany = 100000;
constexpr int kSystemMessages = 134;
constexpr char kLine[] = "Installing package-%06d (1.0-r2) on root: /opt/package/lib/file.so";
constexpr char kPrinted[] = "printed";

std::string line_text(int number) { return tarvio_bench::text_of(kLine, number); }

struct FreeList {
  void operator()(tq_list_t* list) const { tq_list_free(list, 1); }
};

void check_result(benchmark::State& state, int count) {
  const std::unique_ptr<tq_list_t, FreeList> lines(tq_list_create());
  const std::string command = tarvio_bench::text_of("head -n %d printed", count);
  (void)tq_system_command(command.c_str(), lines.get());
  if (tq_list_size(lines.get()) != count) state.SkipWithError("there are no lines to judge");
  for (auto _ : state) {
    for (int repeated = 0; repeated < kMany / count; ++repeated) {
      if (tq_check_command_result_error(lines.get()) != 0) state.SkipWithError("judged wrong");
    }
  }
}

void search_system_messages(benchmark::State& state) {
  std::vector<std::string> lines;
  lines.reserve(kMany);
  for (int at = 0; at < kMany; ++at) lines.push_back(line_text(at));
  std::vector<const char*> messages;
  for (int error = 0; error < kSystemMessages; ++error) {
    if (const char* message = strerrordesc_np(error); message != nullptr) {
      messages.push_back(message);
    }
  }
  for (auto _ : state) {
    for (const std::string& line : lines) {
      for (const char* message : messages) {
        benchmark::DoNotOptimize(std::strstr(line.c_str(), message));
      }
    }
  }
}

void run_opkg(benchmark::State& state) {
  for (auto _ : state) {
    const std::unique_ptr<tq_list_t, FreeList> lines(tq_list_create());
    if (tq_opkg_run_command("cat printed", lines.get()) != 0 ||
        tq_list_size(lines.get()) != kMany) {
      state.SkipWithError("judged wrong");
    }
  }
}

void search_opkg_messages(benchmark::State& state) {
  for (auto _ : state) {
    FILE* output = popen("cat printed", "re");
    char line[256];
    while (std::fgets(line, sizeof line, output) != nullptr) {
      for (const char* message : opkgmes) benchmark::DoNotOptimize(std::strstr(line, message));
    }
    pclose(output);
  }
}

void write_printed() {
  FILE* file = std::fopen(kPrinted, "we");
  if (file == nullptr) tarvio_bench::die("cannot write a file in the current directory");
  for (int at = 0; at < kMany; ++at) (void)std::fprintf(file, "%s\n", line_text(at).c_str());
  (void)std::fclose(file);
}

BENCHMARK_CAPTURE(check_result, few, kFew)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(check_result, many, kMany)->Unit(benchmark::kMillisecond);
BENCHMARK(search_system_messages)->Unit(benchmark::kMillisecond);
BENCHMARK(run_opkg)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(search_opkg_messages)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  tq_set_log_level(TQ_LOG_ERROR + 1);
  write_printed();
  const int status =
      tarvio_bench::run_figures(argc, argv,
                                {{.title = "judge 100,000 lines against 1,000 a hundred times",
                                  .ours = "check_result/many",
                                  .floor = "check_result/few",
                                  .times = 1.5},
                                 {.title = "judge 100,000 lines of a tool",
                                  .ours = "check_result/many",
                                  .floor = "search_system_messages",
                                  .times = 3},
                                 {.title = "run opkg that prints 100,000 lines",
                                  .ours = "run_opkg",
                                  .floor = "search_opkg_messages",
                                  .times = 3}});
  (void)std::remove(kPrinted);
  return status;
}
