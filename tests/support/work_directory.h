// A directory to work in with the tools themselves.
#ifndef TARVIO_TESTS_SUPPORT_WORK_DIRECTORY_H
#define TARVIO_TESTS_SUPPORT_WORK_DIRECTORY_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"

namespace tarvio_test {

inline std::vector<std::string> names_in(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The current directory as long as this lives; removed with all that is in it.
class WorkDirectory {
 public:
  WorkDirectory() : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(directory_.path());
  }
  ~WorkDirectory() { std::filesystem::current_path(before_); }
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;

  std::filesystem::path operator/(std::string_view name) const { return directory_ / name; }
  std::vector<std::string> names() const { return names_in(directory_.path()); }
  bool has(std::string_view name) const { return std::filesystem::exists(directory_ / name); }

  // Runs a line under the shell here; it must succeed.
  void shell(const std::string& line) const {
    const std::string command =
        "cd '" + directory_.path().string() + "' && { " + line + "\n} >/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << line;
  }

 private:
  const TempDir directory_;
  const std::filesystem::path before_;
};

// Puts a script in the place of a tool as long as this lives.
class Tool {
 public:
  Tool(const std::string& name, std::string_view body)
      : path_before_(std::getenv("PATH")), log_(directory_ / "arguments") {
    write_program(directory_ / name, "#!/bin/sh\nprintf '%s\\n' \"$*\" >>" + log_.string() + "\n" +
                                         std::string(body) + "\n");
    ::setenv("PATH", (directory_.path().string() + ":" + path_before_).c_str(), 1);
  }
  ~Tool() { ::setenv("PATH", path_before_.c_str(), 1); }
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  // A line for each run, with its arguments.
  std::string runs() const { return std::filesystem::exists(log_) ? read_file(log_) : ""; }

 private:
  const TempDir directory_;
  const std::string path_before_;
  const std::filesystem::path log_;
};

}  // namespace tarvio_test

#endif
