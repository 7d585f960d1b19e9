// Packages in the information directory of the sandbox.
#ifndef TARVIO_BENCH_SUPPORT_INSTALLED_H
#define TARVIO_BENCH_SUPPORT_INSTALLED_H

#include <string>

namespace tarvio_bench {

inline constexpr char kInfoDirectory[] = "/usr/lib/opkg/info";

// "clock-0007"
std::string package_name(int number);

// A program that keeps running until its parent ends.
extern const char* const kSleeper;

// Writes what the installation of `count` applications leaves there. Ends the process outside of
// the sandbox.
void install_applications(int count, const char* program = kSleeper);

// Lets the manager watch a log, which needs its log reader.
void watch_a_log();

}  // namespace tarvio_bench

#endif
