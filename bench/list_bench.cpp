// Collecting the lines of a command in a list: a million lines at once, held against a thousand
// lines a thousand times, and against a bare loop with a remembered tail. Only the processor time
// of this process counts, so that the thousand shells do not make the first comparison easy.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/figures.h"
#include "support/say.h"
#include "tarvio/list.h"
#include "tarvio/log.h"
#include "tarvio/process.h"

namespace {

constexpr int kFew = 1'000;
constexpr int kMany = 1'000'000;
constexpr int kRepetitions = 7;
constexpr size_t kPieceSize = 256;
constexpr char kPrinted[] = "printed-lines";

std::string command_for(int lines) {
  return tarvio_bench::text_of("head -n %d printed-lines", lines);
}

void collect(benchmark::State& state, int count) {
  const std::string command = command_for(count);
  for (auto _ : state) {
    for (int collected = 0; collected < kMany; collected += count) {
      tq_list_t* const lines = tq_list_create();
      if (tq_system_command(command.c_str(), lines) != 0 || tq_list_size(lines) != count) {
        state.SkipWithError("the lines were not collected");
      }
      (void)tq_list_free(lines, 1);
    }
  }
}

struct BareNode {
  BareNode* next;
  char* line;
};

BareNode** append_bare(BareNode** end, const char* line) {
  *end = static_cast<BareNode*>(std::malloc(sizeof(BareNode)));
  **end = {nullptr, strdup(line)};
  return &(*end)->next;
}

void free_bare(BareNode* node) {
  while (node != nullptr) {
    BareNode* const next = node->next;
    std::free(node->line);
    std::free(node);
    node = next;
  }
}

void collect_bare(benchmark::State& state) {
  const std::string command = command_for(kMany);
  for (auto _ : state) {
    FILE* const output = popen(command.c_str(), "re");
    BareNode* first = nullptr;
    BareNode** end = &first;
    char piece[kPieceSize];
    while (std::fgets(piece, sizeof piece, output) != nullptr) end = append_bare(end, piece);
    if (pclose(output) != 0) state.SkipWithError("the lines were not collected");
    free_bare(first);
  }
}

void write_printed() {
  FILE* file = std::fopen(kPrinted, "we");
  if (file == nullptr) tarvio_bench::die("cannot write a file in the current directory");
  for (int line = 0; line < kMany; ++line) (void)std::fprintf(file, "line %d of many\n", line);
  if (std::fclose(file) != 0) tarvio_bench::die("no room for a file in the current directory");
}

void add(const char* name, auto function, auto... arguments) {
  benchmark::RegisterBenchmark(name, function, arguments...)
      ->Repetitions(kRepetitions)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  tq_set_log_level(TQ_LOG_ERROR + 1);
  write_printed();
  add("collect few", collect, kFew);
  add("collect many", collect, kMany);
  add("collect bare", collect_bare);
  const int status =
      tarvio_bench::run_figures(argc, argv,
                                {{.title = "collect 1,000,000 lines against 1,000 a thousand times",
                                  .ours = "collect many",
                                  .floor = "collect few",
                                  .times = 1.2},
                                 {.title = "collect 1,000,000 lines against a bare loop",
                                  .ours = "collect many",
                                  .floor = "collect bare",
                                  .times = 1.5}});
  (void)std::remove(kPrinted);
  return status;
}
