// A backup of a raw area, held against the same tools run by hand, and the memory that it takes.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/figures.h"
#include "support/say.h"

namespace {

using tarvio_bench::die;
using tarvio_bench::report;
using tarvio_bench::text_of;

constexpr int kBlocks = 480;  // 60 MiB
constexpr long kMaxPeakKib = 8192;
// The dynamic linker's and the heap's pages are not always the same.
constexpr long kRoundingKib = 256;

// What a careful person would type: the dump of the information block and of the area, cut to the
// lengths that are kept, packed one by one, and on the disk before the package has its name.
constexpr char kByHand[] =
    "set -e; mkdir by-hand; cd by-hand; printf 'Package: image.tbx\\nVersion: \\n' >control;"
    "printf 'TqPackageCategory:  Image\\nTqDataTarget: hibernation\\n' >tqcontrol;"
    "nanddump -b -o /dev/mtd2 -s 0x120000 -f ./hibernationinfo; truncate -s 131072 hibernationinfo;"
    "nanddump -b -o /dev/mtd6 -f ./hibernation; truncate -s 121110528 hibernation;"
    "ar rv image.tbx ./hibernationinfo; rm hibernationinfo; ar rv image.tbx ./hibernation;"
    "rm hibernation; tar cvzf control.tar.gz ./control ./tqcontrol; ar rv image.tbx "
    "./control.tar.gz;"
    "sync image.tbx; mv image.tbx ..; cd ..; sync .; rm -r by-hand";
constexpr char kByTarvio[] = BENCH_CLIENT " backup hibernation --to image.tbx --quiet";

void make_device(const char* device, int blocks) {
  std::ofstream file(device, std::ios::trunc);
  const std::string block(0x20000, 'x');
  for (int at = 0; at < blocks; ++at) file << block;
  if (!file.flush()) die(std::string("no room for ") + device);
}

bool run(const std::string& command) {
  return std::system(("{ " + command + "; } >output 2>&1").c_str()) == 0;
}

void back_up(benchmark::State& state, const char* command) {
  for (auto _ : state) {
    if (!run(command)) state.SkipWithError("the backup failed");
    state.PauseTiming();
    std::filesystem::remove("image.tbx");
    state.ResumeTiming();
  }
}

// The peak of a process that calls the library, with an area of so many erase blocks.
long peak_kib(int blocks) {
  make_device("/dev/mtd6", blocks);
  std::filesystem::remove("image.tbx");
  if (!run(BENCH_SAVER " hibernation . image.tbx")) die("the library's backup failed");
  long kib = 0;
  std::ifstream("output") >> kib;
  if (kib <= 0) die("the peak of the memory is not known");
  return kib;
}

bool report_memory() {
  const long small = peak_kib(kBlocks / 10);
  const long large = peak_kib(kBlocks * 2);
  return report(
      "memory of a backup of 6 and of 120 MiB", "8 MiB, both the same",
      text_of("%ld and %ld KiB", small, large),
      small <= kMaxPeakKib && large <= kMaxPeakKib && std::abs(large - small) <= kRoundingKib);
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path directory = std::filesystem::temp_directory_path() / "flash-bench";
  std::filesystem::create_directories(directory);
  std::filesystem::current_path(directory);
  ::setenv("PATH", (BENCH_TOOLS ":" + std::string(std::getenv("PATH"))).c_str(), 1);
  make_device("/dev/mtd2", 16);
  make_device("/dev/mtd6", kBlocks);
  for (const auto& [name, command] : {std::pair{"by_tarvio", kByTarvio}, {"by_hand", kByHand}}) {
    benchmark::RegisterBenchmark(name, back_up, command)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
  const int status = tarvio_bench::run_figures(argc, argv,
                                               {{.title = "back up a raw area of 60 MiB",
                                                 .ours = "by_tarvio",
                                                 .floor = "by_hand",
                                                 .times = 1.3}});
  const bool holds = report_memory();
  return status != 0 || holds ? status : 1;
}
