// A script in the place of opkg, first on PATH.
#ifndef TARVIO_TESTS_SUPPORT_OPKG_TOOL_H
#define TARVIO_TESTS_SUPPORT_OPKG_TOOL_H

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
    ::setenv("PATH", (folder_.path().string() + ":" + path).c_str(), 1);
  }

  void prints(std::string_view output, const std::string& exit_status = "0") const {
    write_file(folder_ / "output", output);
    const std::string folder = folder_.path();
    write_program(folder_ / "opkg", "#!/bin/sh\nprintf '%s\\n' \"$@\" >>" + folder +
                                        "/arguments\ncat " + folder + "/output\nexit " +
                                        exit_status + "\n");
  }

  // One after the other, over all runs.
  std::vector<std::string> arguments() const {
    std::vector<std::string> arguments;
    if (!std::filesystem::exists(folder_ / "arguments")) return arguments;
    std::istringstream lines(read_file(folder_ / "arguments"));
    for (std::string line; std::getline(lines, line);) arguments.push_back(line);
    return arguments;
  }

 private:
  const TempDir folder_;
};

}  // namespace tarvio_test

#endif
