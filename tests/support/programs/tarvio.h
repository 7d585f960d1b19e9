// The client as a program: one run of it, and what came of it.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_TARVIO_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_TARVIO_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace tarvio_test {

struct Ran {
  int status = -1;  // exit status; -1 when a signal ended it
  std::string output;
  std::string errors;
};

// prepare runs in the new process before the program does; standard output and standard error are
// files by then.
Ran run_tarvio(
    const std::vector<std::string>& arguments, const std::function<void()>& prepare = [] {});

// What each command that runs opkg complains of: for that file, and for the package clock. All fail
// without output.
std::vector<std::string> complaints_without_opkg(const std::string& file);

// No package is installed when a test begins.
class WithoutPackages : public testing::Test {
 protected:
  WithoutPackages();
};

}  // namespace tarvio_test

#endif
