#ifndef TARVIO_BENCH_SUPPORT_SAY_H
#define TARVIO_BENCH_SUPPORT_SAY_H

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tarvio_bench {

std::string text_of(const char* format, auto... values) {
  char text[128];
  (void)std::snprintf(text, sizeof text, format, values...);
  return text;
}

// Ends the program when nothing can be measured.
[[noreturn]] inline void die(const std::string& what) {
  (void)std::fprintf(stderr, "bench: %s\n", what.c_str());
  std::exit(2);
}

}  // namespace tarvio_bench

#endif
