// Reading a log of a million lines with tq_log_read, compared with a loop that gets the same output
// and duplicates each line.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/figures.h"
#include "support/say.h"
#include "tarvio/list.h"
#include "tarvio/log.h"
#include "tarvio/log_monitor.h"

namespace {

constexpr int kLines = 1'000'000;
constexpr char kLog[] = "bench-messages";
constexpr char kCommand[] = "cat bench-messages";
constexpr int kPieceSize = 255;

// What a read prints goes where it costs least, and does not mix with the figures.
class Silence {
 public:
  Silence() : before_(dup(STDOUT_FILENO)) { become(open("/dev/null", O_WRONLY | O_CLOEXEC)); }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() { become(before_); }

 private:
  static void become(int fd) {
    (void)std::fflush(stdout);
    (void)dup2(fd, STDOUT_FILENO);
    (void)close(fd);
  }

  int before_;
};

void log_read(benchmark::State& state) {
  const Silence silence;
  for (auto _ : state) {
    tq_list_t* lines = tq_list_create();
    if (tq_log_read(kCommand, nullptr, lines) != 0 || tq_list_size(lines) != kLines) {
      state.SkipWithError("the log was not read");
    }
    state.PauseTiming();
    (void)tq_list_free(lines, 1);
    state.ResumeTiming();
  }
}

void bare_loop(benchmark::State& state) {
  std::vector<char*> lines;
  lines.reserve(kLines);
  for (auto _ : state) {
    FILE* output = popen(kCommand, "re");
    char piece[kPieceSize];
    while (output != nullptr && std::fgets(piece, sizeof piece, output) != nullptr) {
      lines.push_back(strdup(piece));
    }
    if (output == nullptr || pclose(output) != 0 || lines.size() != kLines) {
      state.SkipWithError("the log was not read");
    }
    state.PauseTiming();
    for (char* line : lines) std::free(line);
    lines.clear();
    state.ResumeTiming();
  }
}

void write_log() {
  FILE* file = std::fopen(kLog, "we");
  if (file == nullptr) tarvio_bench::die("cannot write a file in the current directory");
  for (int line = 0; line < kLines; ++line) {
    (void)std::fprintf(file, "Jan %2d 00:%02d:%02d board daemon.info clock[%d]: the time is %d\n",
                       line / 50'000 + 1, line / 60 % 60, line % 60, line % 900 + 100, line);
  }
  if (std::fclose(file) != 0) tarvio_bench::die("no room for a log in the current directory");
}

BENCHMARK(log_read)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(bare_loop)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  tq_set_log_level(TQ_LOG_ERROR + 1);
  write_log();
  const int status = tarvio_bench::run_figures(argc, argv,
                                               {{.title = "read a log of 1,000,000 lines",
                                                 .ours = "log_read",
                                                 .floor = "bare_loop",
                                                 .times = 2}});
  (void)unlink(kLog);
  return status;
}
