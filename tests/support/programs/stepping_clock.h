// The client at a terminal, with a clock of the test's own.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_STEPPING_CLOCK_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_STEPPING_CLOCK_H

#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "support/programs/terminal.h"

namespace tarvio_test {

enum class Clock { kStandsStill, kStepsAnHour };

// In the new process: the clock stands still, or each look at it is an hour after the one before.
inline void use_clock(Clock clock) {
  ::setenv("LD_PRELOAD", TARVIO_STEPPING_CLOCK, 1);
  ::setenv("TARVIO_TEST_STEP", clock == Clock::kStandsStill ? "0" : "3600", 1);
  // AddressSanitizer wants to be the first to be loaded, which the module is now.
  const char* const options = std::getenv("ASAN_OPTIONS");
  const std::string others = options == nullptr ? "" : options;
  ::setenv("ASAN_OPTIONS", (others + ":verify_asan_link_order=0").c_str(), 1);
}

// The same with the terminal for standard output.
inline std::function<void()> at_terminal(const Terminal& terminal, Clock clock) {
  return [line = terminal.line(), clock] {
    use_clock(clock);
    ::setenv("TERM", "linux", 1);
    ::dup2(line, STDOUT_FILENO);
  };
}

}  // namespace tarvio_test

#endif
