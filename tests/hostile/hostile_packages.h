// The hostile package files, and what must not change around the one who reads them.
#ifndef TARVIO_TESTS_HOSTILE_HOSTILE_PACKAGES_H
#define TARVIO_TESTS_HOSTILE_HOSTILE_PACKAGES_H

#include <map>
#include <string>
#include <vector>

namespace tarvio_test {

struct HostilePackage {
  std::string file;
  std::string is_readable;  // "yes", "no", or "any" where it depends on the tools
  std::string is_taken;     // by opkg

  [[nodiscard]] bool is_image() const { return file.find("image") != std::string::npos; }
  [[nodiscard]] bool is_random() const { return file.find("random") != std::string::npos; }
};

// Tests take parts of them, so that several run at a time.
inline constexpr int kParts = 24;
std::vector<HostilePackage> hostile_packages(int part);

// What is written down of each file: its type, size and times.
using Surroundings = std::map<std::string, std::string>;

// Of all files that a package could reach for; its names lead to them by absolute paths and by
// "..". The directories of this test's own are left out, but not what is beside them.
Surroundings surroundings(const std::vector<std::string>& own);

// The paths of the files that came, went or changed.
std::vector<std::string> changes(const Surroundings& before, Surroundings after);

}  // namespace tarvio_test

#endif
