// The entry point of libFuzzer for reading logs. Each input takes several processes: parse_fuzz is
// faster where only the lines matter.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "log_input.h"
#include "tarvio/log.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  tq_set_log_level(TQ_LOG_ERROR + 1);
  // Every line that is read is printed.
  return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string wrong =
      tarvio_fuzz::check_log(std::string(reinterpret_cast<const char*>(data), size));
  if (!wrong.empty()) {
    std::fprintf(stderr, "%s\n", wrong.c_str());
    std::abort();
  }
  return 0;
}
