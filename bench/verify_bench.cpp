// `tarvio verify` on a signed image of 120 MiB, compared with `minisign -V`: its time, and the
// memory that it needs.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "support/figures.h"
#include "support/say.h"

namespace {

using tarvio_bench::die;
using tarvio_bench::text_of;

constexpr char kDirectory[] = "/run/tmp/signed";
constexpr long kMaxKib = 2048;

bool run(const std::string& line) {
  const std::string command =
      std::string("cd ") + kDirectory + " && { " + line + "; } >/dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

void make_signed_image() {
  if (std::system((std::string("mkdir ") + kDirectory).c_str()) != 0 ||
      !run("echo 2.0 >debian-binary && printf 'Package: image\nVersion: 1.0\n' >control && printf "
           "'TqPackageCategory: Image\nTqPackageSubCategory: Image_Rootfs\nTqDataTarget: rootfs\n' "
           ">tqcontrol && tar czf control.tar.gz ./control ./tqcontrol && "
           "head -c 120M /dev/urandom >rootfs && "
           "ar rc image.tbx debian-binary control.tar.gz rootfs && rm rootfs && " BENCH_CLIENT
           " keygen vendor --no-password && " BENCH_CLIENT " sign image.tbx --key vendor.key")) {
    die("the signed image cannot be made");
  }
}

constexpr char kOurs[] = BENCH_CLIENT " verify image.tbx --key vendor.pub";
constexpr char kPeer[] = "minisign -V -m image.tbx -p vendor.pub";

void measure(benchmark::State& state, const std::string& line) {
  for (auto _ : state) {
    if (!run(line)) {
      state.SkipWithError("the program failed");
      break;
    }
  }
}

void add(const char* name, const char* line) {
  benchmark::RegisterBenchmark(name, measure, line)->UseRealTime()->Unit(benchmark::kMillisecond);
}

// The least limit of its memory, data of libraries and tools included, with which it works.
bool report_memory() {
  long kib = 256;
  while (kib <= 16 * kMaxKib && !run("ulimit -d " + std::to_string(kib) + " && " + kOurs))
    kib += 256;
  return tarvio_bench::report("memory of tarvio verify, 120 MiB", text_of("<= %ld KiB", kMaxKib),
                              text_of("%ld KiB of data", kib), kib <= kMaxKib);
}

}  // namespace

int main(int argc, char** argv) {
  make_signed_image();
  const bool is_small = report_memory();
  add("tarvio_verify", kOurs);
  add("minisign", kPeer);
  const int status = tarvio_bench::run_figures(argc, argv,
                                               {{.title = "tarvio verify, 120 MiB",
                                                 .ours = "tarvio_verify",
                                                 .floor = "minisign",
                                                 .times = 1.25}});
  return status == 0 && !is_small ? 1 : status;
}
