// A log call below the threshold, compared with the formatting that it has to do in any case.

#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdio>

#include "support/figures.h"
#include "tarvio/log.h"

namespace {

constexpr size_t kLineSize = 1024;
constexpr char kUnit[] = "package/tq_tbx_package_binding";
constexpr int kLine = 180;

[[gnu::noinline, gnu::format(printf, 3, 4)]] void format_bare(const char* file, int line,
                                                              const char* format, ...) {
  char message[kLineSize];
  char suffix[kLineSize];
  va_list arguments;
  va_start(arguments, format);
  (void)std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  (void)std::snprintf(suffix, sizeof suffix, " -  %s %d\n", file, line);
  benchmark::DoNotOptimize(message);
  benchmark::DoNotOptimize(suffix);
}

void log_without_arguments(benchmark::State& state) {
  for (auto _ : state) tq_log_func(TQ_LOG_DEBUG, kUnit, kLine, "sending status done");
}

void bare_without_arguments(benchmark::State& state) {
  for (auto _ : state) format_bare(kUnit, kLine, "sending status done");
}

void log_a_string(benchmark::State& state) {
  for (auto _ : state) tq_log_func(TQ_LOG_DEBUG, kUnit, kLine, "receive line %s", "status_all");
}

void bare_a_string(benchmark::State& state) {
  for (auto _ : state) format_bare(kUnit, kLine, "receive line %s", "status_all");
}

void log_four_arguments(benchmark::State& state) {
  for (auto _ : state) {
    tq_log_func(TQ_LOG_DEBUG, kUnit, kLine, "%s: pkg:[%s], category: [%s], subcategory: [%s] ",
                "tq_tbx_list", "clock", "Application", "Application_Native");
  }
}

void bare_four_arguments(benchmark::State& state) {
  for (auto _ : state) {
    format_bare(kUnit, kLine, "%s: pkg:[%s], category: [%s], subcategory: [%s] ", "tq_tbx_list",
                "clock", "Application", "Application_Native");
  }
}

// A conversion that printf formats.
void log_a_pointer(benchmark::State& state) {
  for (auto _ : state)
    tq_log_func(TQ_LOG_INFO, kUnit, kLine, "%s: head=%p ", "show_list",
                static_cast<const void*>(&state));
}

void bare_a_pointer(benchmark::State& state) {
  for (auto _ : state)
    format_bare(kUnit, kLine, "%s: head=%p ", "show_list", static_cast<const void*>(&state));
}

BENCHMARK(log_without_arguments);
BENCHMARK(bare_without_arguments);
BENCHMARK(log_a_string);
BENCHMARK(bare_a_string);
BENCHMARK(log_four_arguments);
BENCHMARK(bare_four_arguments);
BENCHMARK(log_a_pointer);
BENCHMARK(bare_a_pointer);

}  // namespace

int main(int argc, char** argv) {
  tq_set_log_level(TQ_LOG_WARNING);
  return tarvio_bench::run_figures(argc, argv,
                                   {{.title = "dropped log call, no arguments",
                                     .ours = "log_without_arguments",
                                     .floor = "bare_without_arguments",
                                     .times = 1.3},
                                    {.title = "dropped log call, one string",
                                     .ours = "log_a_string",
                                     .floor = "bare_a_string",
                                     .times = 1.3},
                                    {.title = "dropped log call, four strings",
                                     .ours = "log_four_arguments",
                                     .floor = "bare_four_arguments",
                                     .times = 1.3},
                                    {.title = "dropped log call, a pointer",
                                     .ours = "log_a_pointer",
                                     .floor = "bare_a_pointer",
                                     .times = 1.3}});
}
