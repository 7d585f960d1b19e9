// `tarvio status` from its start to its end, compared with a program that does nothing.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/figures.h"
#include "support/installed.h"
#include "support/manager.h"

namespace {

constexpr int kApplications = 20;

void run_program(benchmark::State& state, std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  for (auto _ : state) {
    pid_t pid = -1;
    int status = -1;
    if (posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
      state.SkipWithError("the program failed");
      break;
    }
  }
  posix_spawn_file_actions_destroy(&actions);
}

void add(const char* name, const std::vector<std::string>& words) {
  benchmark::RegisterBenchmark(name, run_program, words)
      ->UseRealTime()
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
  tarvio_bench::install_applications(kApplications);
  const tarvio_bench::Manager manager(kApplications);
  add("tarvio_status", {BENCH_CLIENT, "status"});
  add("do_nothing", {BENCH_NOTHING});
  add("tarvio_version", {BENCH_CLIENT, "--version"});
  return tarvio_bench::run_figures(argc, argv,
                                   {{.title = "tarvio status, 20 applications",
                                     .ours = "tarvio_status",
                                     .floor = "do_nothing",
                                     .seconds_more = 0.0005}});
}
