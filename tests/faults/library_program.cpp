// faults-library ROW: makes the calls of a row, under the module that fails one of their
// allocations or calls. Exit status 1 when one of the functions reports a failure.
#include <cstdio>

#include "faults/fault_record.h"
#include "faults/library_rows.h"
#include "tarvio/log.h"

int main(int argc, char** argv) {
  // The streams must not allocate among the calls.
  static char output[65536];
  std::setvbuf(stdout, output, _IOFBF, sizeof output);
  constexpr int kSilent = 4;
  tq_set_log_level(kSilent);
  if (argc != 2) return 2;
  faults::Calls calls = faults::find_data_row(argv[1]);
  if (calls == nullptr) calls = faults::find_system_row(argv[1]);
  if (calls == nullptr) return 2;
  if (fault_watch != nullptr) fault_watch(1);
  const bool succeeds = calls();
  if (fault_watch != nullptr) fault_watch(0);
  if (succeeds) return 0;
  std::fputs("a call reported a failure\n", stderr);
  return 1;
}
