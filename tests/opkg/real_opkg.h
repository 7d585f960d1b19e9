// Real releases of opkg: the programs opkg-VERSION in the directory TARVIO_OPKG_DIR.
#ifndef TARVIO_TESTS_OPKG_REAL_OPKG_H
#define TARVIO_TESTS_OPKG_REAL_OPKG_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/packages/package_listing.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {

inline constexpr char kOpkg018[] = "0.1.8";
inline constexpr char kOpkg044[] = "0.4.4";

// One release, first on PATH, with directories of its own: all that an installation may write is
// private to the test, and the rest of the file system is read-only. Nothing is installed.
class RealOpkg : public testing::TestWithParam<const char*> {
 protected:
  // A package file with a file /opt/NAME/VERSION, and further lines in its control file.
  static std::string package(const std::string& name, const std::string& version,
                             const std::string& further = "");
  // Packs the directory of a package file again, with what a test changed in it.
  static std::string pack(const std::filesystem::path& directory);
  // The package "other" with the file /opt/app/common, which "app" has too.
  static std::string clashing_package();
  // The package "app" for an architecture that is not configured.
  static std::string foreign_package();
  // The package "app" with a file /opt/app/blob of 3,000,000 bytes.
  static std::string large_package();
  // From now on opkg has a feed with these package files.
  static void offer(const std::vector<std::string>& files);
  // The whole of what a test would have to know about a package: its version, or "".
  static std::string installed_version(const std::string& name, const std::string& root = "");
  // Whether opkg and the file system have nothing of it.
  static bool has_trace(const std::string& name);

  static Ran install(const std::string& file) { return run_tarvio({"install", file}); }
  static Ran install_by_force(const std::string& file) {
    return run_tarvio({"install", "--force", file});
  }

  static bool is_old() { return std::string(GetParam()) == kOpkg018; }

  void SetUp() override;
};

}  // namespace tarvio_test

#endif
