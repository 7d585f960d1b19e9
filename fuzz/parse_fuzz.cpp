// The entry point of libFuzzer for parsing log lines and searching for hooks.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "log_input.h"
#include "tarvio/log.h"
#include "tarvio/log_monitor.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  tq_set_log_level(TQ_LOG_ERROR + 1);
  tq_setup_log_manager();
  for (const char* hook : {"clock", "[", " "}) tq_set_log_hook(const_cast<char*>(hook));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string wrong =
      tarvio_fuzz::check_lines(std::string(reinterpret_cast<const char*>(data), size));
  if (!wrong.empty()) {
    std::fprintf(stderr, "%s\n", wrong.c_str());
    std::abort();
  }
  return 0;
}
