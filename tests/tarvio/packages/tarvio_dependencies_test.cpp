// What a package needs, and what is installed.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "packages/dependencies.h"
#include "support/files.h"
#include "support/packages/package_listing.h"

namespace tarvio_test {
namespace {

using client::missing_dependency;

class Dependencies : public testing::Test {
 protected:
  Dependencies() {
    write_kernel_command_line("root=/dev/mtdblock4\n");
    std::filesystem::create_directories(kInformation);
    install("lib", "1.10", "Provides: sound, codec (= 7), radio\n");
    install("font", "2:1.0-1");
  }
  static void install(const std::string& name, const std::string& version,
                      const std::string& further = "") {
    write_file(std::string(kInformation) + "/" + name + ".control",
               "Package: " + name + "\nVersion: " + version + "\n" + further);
  }
};

TEST_F(Dependencies, AreSatisfiedByWhatIsInstalled) {
  for (const char* line : {
           "Depends:",
           "Depends: lib",
           "Depends: lib , font",
           "Depends: lib (>= 1.9), font (>> 1:9)",
           "Depends: lib (>=1.10),font(<<2:1.0-2)",
           "Depends: lib (= 1.10), lib (<= 1.10), lib (>= 1.10)",
           "Depends: lib (< 1.10), lib (> 1.10)",
           "Depends: nowhere | lib",
           "Depends: lib (>= 2.0) | font, lib",
           "Depends: sound, sound (>= 1.10), codec (= 7), radio",
           "Pre-Depends: lib",
           "Recommends: nowhere",
       }) {
    EXPECT_EQ(missing_dependency("Package: app\n" + std::string(line) + "\nVersion: 1\n"), "")
        << line;
  }
  EXPECT_EQ(missing_dependency("Package: app\n"), "");
}

TEST_F(Dependencies, AreMissingAsTheyAreWritten) {
  const struct {
    const char* line;
    const char* missing;
  } rows[] = {
      {"Depends: nowhere", "nowhere"},
      {"Depends: lib, nowhere, font", "nowhere"},
      {"Depends: lib (>= 1.11)", "lib (>= 1.11)"},
      {"Depends: lib (<< 1.10)", "lib (<< 1.10)"},
      {"Depends: lib (>> 1.10)", "lib (>> 1.10)"},
      {"Depends: lib (<= 1.9)", "lib (<= 1.9)"},
      {"Depends: lib (= 1.1)", "lib (= 1.1)"},
      {"Depends: lib (~ 1.10)", "lib (~ 1.10)"},
      {"Depends: font (<= 1.0-1)", "font (<= 1.0-1)"},
      {"Depends: nowhere | lib (= 2)", "nowhere | lib (= 2)"},
      {"Depends: codec (>= 8)", "codec (>= 8)"},
      {"Depends: LIB", "LIB"},
      {"Pre-Depends: nowhere", "nowhere"},
  };
  for (const auto& [line, missing] : rows) {
    EXPECT_EQ(missing_dependency("Package: app\n" + std::string(line) + "\n"), missing);
  }
}

}  // namespace
}  // namespace tarvio_test
