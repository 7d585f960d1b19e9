// Package files in the client, with the real tools.
#include <cstdlib>
#include <filesystem>

#include "fuzzer.h"
#include "memory_file.h"
#include "packages/needed_space.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "process/work_directory.h"
#include "support/files.h"

namespace tarvio_fuzz {
namespace {

constexpr double kSeconds = 10;

std::string read(const std::string& path) {
  const client::WorkDirectory directory;
  const client::PackageFile package = client::read_package_file(directory, path, kSeconds);
  if (package.name.empty()) return "a package without a name";
  const client::PackageSpace space = client::measure_package(directory, path, kSeconds);
  const uint64_t listed = space.control_bytes + space.data_bytes;
  return space.decisive.needed_bytes <= listed ? "" : "it needs more than is listed";
}

std::string check_package(const std::string& content) {
  const MemoryFile file(content);
  const tarvio_test::TempDir place;
  setenv("TMPDIR", place.path().c_str(), 1);
  std::string wrong;
  try {
    wrong = read(file.path());
  } catch (const client::Failure& failure) {
    if (failure.what()[0] == '\0') wrong = "refused without a reason";
    if (failure.status() == client::kTimeout) wrong = "it takes too long";
  }
  unsetenv("TMPDIR");
  return std::filesystem::is_empty(place.path()) ? wrong : "something is left";
}

}  // namespace

const Fuzzer kPackage = {.corpus = "package", .check = check_package};

}  // namespace tarvio_fuzz
