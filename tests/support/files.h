// Files of a test. What cannot be done fails the test.
#ifndef TARVIO_TESTS_SUPPORT_FILES_H
#define TARVIO_TESTS_SUPPORT_FILES_H

#include <filesystem>
#include <string>
#include <string_view>

namespace tarvio_test {

// A directory of the test's own, removed with all that is in it at the end of the scope.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// Writes the whole file, in place where it exists.
void write_file(const std::filesystem::path& path, std::string_view content);

// Writes a file that can be run, such as a script that stands in for a tool.
void write_program(const std::filesystem::path& path, std::string_view content);

std::string read_file(const std::filesystem::path& path);

// Sets what the library finds in /proc/cmdline.
void write_kernel_command_line(std::string_view content);

}  // namespace tarvio_test

#endif
