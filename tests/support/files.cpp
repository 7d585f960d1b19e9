#include "support/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tarvio_test {

TempDir::TempDir() {
  std::string path = std::filesystem::temp_directory_path() / "tarvio-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr)
    ADD_FAILURE() << "cannot make " << path << ": " << std::strerror(errno);
  path_ = path;
}

TempDir::~TempDir() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
  if (error) ADD_FAILURE() << "cannot remove " << path_ << ": " << error.message();
}

void write_file(const std::filesystem::path& path, std::string_view content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!file.flush()) ADD_FAILURE() << "cannot write " << path << ": " << std::strerror(errno);
}

void write_program(const std::filesystem::path& path, std::string_view content) {
  write_file(path, content);
  if (::chmod(path.c_str(), 0755) != 0)
    ADD_FAILURE() << "cannot make " << path << " runnable: " << std::strerror(errno);
}

std::string read_file(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) ADD_FAILURE() << "cannot read " << path << ": " << std::strerror(errno);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write_kernel_command_line(std::string_view content) {
  const char* path = std::getenv("TARVIO_TEST_CMDLINE");
  if (path == nullptr) {
    ADD_FAILURE() << "not in the sandbox: TARVIO_TEST_CMDLINE is not set";
    return;
  }
  write_file(path, content);
}

}  // namespace tarvio_test
