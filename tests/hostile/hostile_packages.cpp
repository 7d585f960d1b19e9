#include "hostile_packages.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace tarvio_test {

namespace {

namespace fs = std::filesystem;

std::string facts_of(const fs::path& path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) return "gone";
  // Files come and go in the directories of a test, which shows in the times of their parents.
  if (S_ISDIR(status.st_mode)) return "directory " + std::to_string(status.st_mode);
  return std::to_string(status.st_mode) + " " + std::to_string(status.st_size) + " " +
         std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
}

void note(const fs::path& directory, const std::vector<std::string>& own, bool is_deep,
          Surroundings& all) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    const fs::path& path = entry.path();
    if (std::find(own.begin(), own.end(), path) != own.end()) continue;
    all[path] = facts_of(path);
    if (is_deep && entry.symlink_status().type() == fs::file_type::directory) {
      note(path, own, is_deep, all);
    }
  }
}

}  // namespace

std::vector<HostilePackage> hostile_packages(int part) {
  std::vector<HostilePackage> packages;
  std::ifstream list(TARVIO_HOSTILE_PACKAGES "/list");
  HostilePackage package;
  for (int at = 0; list >> package.file >> package.is_readable >> package.is_taken; ++at) {
    package.file.insert(0, TARVIO_HOSTILE_PACKAGES "/");
    if (at % kParts == part) packages.push_back(package);
  }
  EXPECT_GE(packages.size(), 500 / kParts);
  return packages;
}

Surroundings surroundings(const std::vector<std::string>& own) {
  Surroundings all;
  note("/", own, false, all);
  for (const char* directory : {"/run", "/opt", "/mnt", "/etc/tarvio", "/usr/lib/opkg", "/var/log",
                                "/usr/local/share/tarvio", TARVIO_HOSTILE_PACKAGES}) {
    note(directory, own, true, all);
  }
  return all;
}

std::vector<std::string> changes(const Surroundings& before, Surroundings after) {
  std::vector<std::string> paths;
  for (const auto& [path, facts] : before) {
    if (after[path] != facts) paths.push_back(path);
  }
  for (const auto& [path, facts] : after) {
    if (!before.contains(path)) paths.push_back(path);
  }
  return paths;
}

}  // namespace tarvio_test
