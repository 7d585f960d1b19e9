// The entry point of libFuzzer, for the fuzzer that the build names.
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzzer.h"
#include "tarvio/log.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  // The client learns from it that a child has ended, so libFuzzer's own thread must not take it.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGCHLD);
  (void)sigprocmask(SIG_BLOCK, &signals, nullptr);
  tq_set_log_level(TQ_LOG_ERROR + 1);
  // Some calls print what they read.
  return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string wrong =
      tarvio_fuzz::TARVIO_FUZZER.check(std::string(reinterpret_cast<const char*>(data), size));
  if (!wrong.empty()) {
    std::fprintf(stderr, "%s\n", wrong.c_str());
    std::abort();
  }
  return 0;
}
