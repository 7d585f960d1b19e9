// A script in the place of opkg, first on PATH.
#ifndef TARVIO_TESTS_SUPPORT_PACKAGES_OPKG_TOOL_H
#define TARVIO_TESTS_SUPPORT_PACKAGES_OPKG_TOOL_H

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/files.h"

namespace tarvio_test {

// Prints what it is told to, and keeps the arguments of its runs.
class OpkgTool {
 public:
  explicit OpkgTool(std::string_view output = "", const std::string& exit_status = "0") {
    prints(output, exit_status);
    const char* path = std::getenv("PATH");
    ::setenv("PATH", (directory_.path().string() + ":" + path).c_str(), 1);
  }

  void prints(std::string_view output, const std::string& exit_status = "0") const {
    write_file(directory_ / "output", output);
    const std::string directory = directory_.path();
    write_program(directory_ / "opkg", "#!/bin/sh\nprintf '%s\\n' \"$@\" >>" + directory +
                                           "/arguments\ncat " + directory + "/output\nexit " +
                                           exit_status + "\n");
  }

  // One after the other, over all runs.
  std::vector<std::string> arguments() const {
    std::vector<std::string> arguments;
    if (!std::filesystem::exists(directory_ / "arguments")) return arguments;
    std::istringstream lines(read_file(directory_ / "arguments"));
    for (std::string line; std::getline(lines, line);) arguments.push_back(line);
    return arguments;
  }

 private:
  const TempDir directory_;
};

}  // namespace tarvio_test

#endif
