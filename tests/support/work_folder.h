// A folder to work in with the tools themselves.
#ifndef TARVIO_TESTS_SUPPORT_WORK_FOLDER_H
#define TARVIO_TESTS_SUPPORT_WORK_FOLDER_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"

namespace tarvio_test {

inline std::vector<std::string> names_in(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The current folder as long as this lives; removed with all that is in it.
class WorkFolder {
 public:
  WorkFolder() : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder_.path());
  }
  ~WorkFolder() { std::filesystem::current_path(before_); }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  std::filesystem::path operator/(std::string_view name) const { return folder_ / name; }
  std::vector<std::string> names() const { return names_in(folder_.path()); }
  bool has(std::string_view name) const { return std::filesystem::exists(folder_ / name); }

  // Runs a line under the shell here; it must succeed.
  void shell(const std::string& line) const {
    const std::string command =
        "cd '" + folder_.path().string() + "' && { " + line + "\n} >/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << line;
  }

 private:
  const TempDir folder_;
  const std::filesystem::path before_;
};

// Puts a script in the place of a tool as long as this lives.
class Tool {
 public:
  Tool(const std::string& name, std::string_view body)
      : path_before_(std::getenv("PATH")), log_(folder_ / "arguments") {
    write_program(folder_ / name, "#!/bin/sh\nprintf '%s\\n' \"$*\" >>" + log_.string() + "\n" +
                                      std::string(body) + "\n");
    ::setenv("PATH", (folder_.path().string() + ":" + path_before_).c_str(), 1);
  }
  ~Tool() { ::setenv("PATH", path_before_.c_str(), 1); }
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  // A line for each run, with its arguments.
  std::string runs() const { return std::filesystem::exists(log_) ? read_file(log_) : ""; }

 private:
  const TempDir folder_;
  const std::string path_before_;
  const std::filesystem::path log_;
};

}  // namespace tarvio_test

#endif
