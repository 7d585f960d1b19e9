// Copying a file, held against cp.

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/figures.h"
#include "support/say.h"
#include "tarvio/log.h"
#include "tarvio/tbx.h"

namespace {

constexpr size_t kBytes = 64 << 20;
constexpr char kSource[] = "copy-source";
constexpr char kCopy[] = "copy-result";

void copy_file(benchmark::State& state) {
  for (auto _ : state) {
    if (tq_copy_file(kSource, kCopy) != 0) state.SkipWithError("the copy failed");
    state.PauseTiming();
    (void)unlink(kCopy);
    state.ResumeTiming();
  }
}

bool run_cp() {
  std::string words[] = {"cp", kSource, kCopy};
  char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  pid_t pid = -1;
  int status = -1;
  return posix_spawnp(&pid, "cp", nullptr, nullptr, arguments, environ) == 0 &&
         waitpid(pid, &status, 0) == pid && status == 0;
}

void cp(benchmark::State& state) {
  for (auto _ : state) {
    if (!run_cp()) state.SkipWithError("cp failed");
    state.PauseTiming();
    (void)unlink(kCopy);
    state.ResumeTiming();
  }
}

void write_source() {
  FILE* file = std::fopen(kSource, "we");
  if (file == nullptr) tarvio_bench::die("cannot write a file in the current directory");
  const std::string block(1 << 20, 'x');
  for (size_t written = 0; written < kBytes; written += block.size()) {
    if (std::fwrite(block.data(), 1, block.size(), file) != block.size()) {
      tarvio_bench::die("no room for a file of 64 MiB in the current directory");
    }
  }
  (void)std::fclose(file);
}

BENCHMARK(copy_file)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(cp)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  tq_set_log_level(TQ_LOG_ERROR + 1);
  write_source();
  const int status = tarvio_bench::run_figures(
      argc, argv,
      {{.title = "copy a file of 64 MiB", .ours = "copy_file", .floor = "cp", .times = 1.5}});
  (void)unlink(kSource);
  return status;
}
