// What opkg has left half done, from its records.
#include "board/opkg_records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "process/kernel_text.h"
#include "support/files.h"

namespace tarvio_test {
namespace {

using agent::unfinished_in;
using testing::ElementsAre;
using testing::IsEmpty;

using Versions = std::map<std::string, std::string>;

std::string paragraph(const std::string& name, const std::string& version,
                      const std::string& status) {
  return "Package: " + name + "\nVersion: " + version + "\nProvides:\nStatus: " + status +
         "\nArchitecture: all\n\n";
}

TEST(OpkgRecords, AreThoseOfInstalledPackages) {
  const std::string status = paragraph("app", "1.0", "install user installed") +
                             paragraph("lib", "2:1.0-r1", "install ok installed");
  EXPECT_THAT(unfinished_in(status, {{"app", "1.0"}, {"lib", "2:1.0-r1"}}), IsEmpty());
  EXPECT_THAT(unfinished_in("", {}), IsEmpty());
}

TEST(OpkgRecords, ShowWhatACutHasLeft) {
  const std::string status = paragraph("app", "1.0", "install user installed");
  EXPECT_THAT(unfinished_in(status, {{"app", "1.0"}, {"fresh", "1.0"}}), ElementsAre("fresh"));
  EXPECT_THAT(unfinished_in(status, {{"app", "2.0"}}), ElementsAre("app"));
  EXPECT_THAT(unfinished_in(status, {}), ElementsAre("app"));
}

TEST(OpkgRecords, ShowWhatOpkgHasNotConfigured) {
  for (const char* state : {"unpacked", "half-installed", "half-configured"}) {
    const std::string status = paragraph("app", "1.0", std::string("install user ") + state);
    EXPECT_THAT(unfinished_in(status, {{"app", "1.0"}}), ElementsAre("app")) << state;
  }
}

TEST(OpkgRecords, MayHaveWhatIsNotInstalled) {
  EXPECT_THAT(unfinished_in(paragraph("app", "1.0", "unknown ok not-installed") +
                                paragraph("lib", "1.0", "deinstall user config-files"),
                            {}),
              IsEmpty());
}

TEST(OpkgRecords, AreBelowTheRootThatIsInstalled) {
  write_kernel_command_line("root=/dev/mtdblock5");
  std::filesystem::create_directories("/mnt/root/usr/lib/opkg/info");
  write_file("/mnt/root/usr/lib/opkg/status", paragraph("app", "1.0", "install user unpacked"));
  EXPECT_THAT(agent::unfinished_packages(client::root_of_packages()), ElementsAre("app"));
  write_kernel_command_line("root=/dev/mtdblock4");
  EXPECT_THAT(agent::unfinished_packages(client::root_of_packages()), IsEmpty());
}

TEST(OpkgRecords, MayBeAnything) {
  EXPECT_THAT(unfinished_in("nonsense\n:\nStatus: x\nVersion:\nPackage:", {}), ElementsAre(""));
  EXPECT_THAT(unfinished_in(std::string("\0\n\0", 3), {{"app", "1.0"}}), ElementsAre("app"));
}

}  // namespace
}  // namespace tarvio_test
