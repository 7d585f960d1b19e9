// The version that a saved image says it has.
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/flash/backup_run.h"
#include "support/flash/flash_device.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kUnit[] = "util/tq_tbx_util";

class BackupVersion : public Backup {
 protected:
  // The library's files of an online boot lie below this directory.
  BackupVersion() { write_kernel_command_line(kOnline); }

  // Writes the two files below a root.
  void write_files(const std::string& name, const std::string& control_of_package,
                   const std::string& root) const {
    fs::create_directories(root + "/etc");
    fs::create_directories(root + "/usr/lib/opkg/info");
    write_file(root + "/etc/systemversion", name);
    const std::string package = name.substr(0, name.find_first_of("\r\n"));
    if (!control_of_package.empty()) {
      write_file(root + "/usr/lib/opkg/info/" + package + ".control", control_of_package);
    }
  }

  // The version that a backup writes.
  std::string version() {
    failing_ = "tar";
    EXPECT_EQ(back_up({"kernel"}), EIO);
    const std::string text = control();
    const size_t at = text.find("Version: ") + 9;
    return text.substr(at, text.find("\nMaintainer") - at);
  }

  // That of an online boot with such files.
  std::string version_with(const std::string& control_of_package,
                           const std::string& name = "image-base\n") {
    write_files(name, control_of_package, directory_ / "root");
    Hook open("fopen", [this](const char* path, const char* mode) {
      const bool is_ours = path == std::string("/etc/systemversion") ||
                           std::string(path).starts_with("/usr/lib/opkg/");
      return ::fopen(is_ours ? ((directory_ / "root").string() + path).c_str() : path, mode);
    });
    return version();
  }

  const FlashDevice device_;
};

TEST_F(BackupVersion, IsThatOfTheSystemsPackage) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(version_with("Package: image-base\nVersion: 1.2.3\nDepends: a\n"), "1.2.3");
  EXPECT_THAT(mounts_.calls, IsEmpty());
  const std::vector<std::string> messages = unit_messages(log, kUnit);
  const auto first = std::find(messages.begin(), messages.end(), "debug: get tbx version start");
  ASSERT_GE(messages.end() - first, 8);
  EXPECT_THAT(
      std::vector(first, first + 8),
      ElementsAre("debug: get tbx version start",
                  "debug: version of the package name is image-base",
                  "debug: version of the package file is "
                  "/usr/lib/opkg/info/image-base.control",
                  "debug: read conf line Package: image-base ",
                  "debug: read conf line Version: 1.2.3 ", "debug: version of the system is  1.2.3",
                  "debug: read conf line Depends: a ", "debug: get package version 1.2.3"));
}

TEST_F(BackupVersion, IsReadBelowTheWritableAreaWhenOffline) {
  write_kernel_command_line(kOffline);
  write_files("image-base\n", "Version: 2.0\n", "/dev/mtdblock5.tree");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(version(), "2.0");
  EXPECT_THAT(mounts_.calls,
              ElementsAre("mount /dev/mtdblock5 /mnt/root jffs2 8", "umount /mnt/root"));
  EXPECT_THAT(unit_messages(log, kUnit),
              testing::IsSupersetOf({"debug: mount writable area because of off line.",
                                     "debug: version of the package file is "
                                     "/mnt/root/usr/lib/opkg/info/image-base.control",
                                     "debug: umount /mnt/root "}));
}

TEST_F(BackupVersion, IsEmptyWhenTheWritableAreaCannotBeMounted) {
  write_kernel_command_line(kOffline);
  mounts_.failing = "mount";
  EXPECT_EQ(version(), "");
  EXPECT_THAT(mounts_.calls,
              ElementsAre("mount /dev/mtdblock5 /mnt/root jffs2 8", "umount /mnt/root"));
}

// The library's reading of the command line leaves the flag alone then, which counts as offline.
TEST_F(BackupVersion, IsReadOfflineFromAnEmptyCommandLine) {
  write_kernel_command_line("");
  write_files("image-base\n", "Version: 2.0\n", "/dev/mtdblock5.tree");
  EXPECT_EQ(version(), "2.0");
}

int open_without_boot(const char* path, int flags, ...) {
  if (std::string(path) != "/proc/cmdline") return ::open(path, flags, 0644);
  errno = EACCES;
  return -1;
}

TEST_F(BackupVersion, IsNotLookedForWhenTheBootCannotBeRead) {
  Hook open("open", &open_without_boot);
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(version(), "");
  EXPECT_THAT(mounts_.calls, ElementsAre("umount /mnt/root"));
  EXPECT_THAT(log.messages(TQ_LOG_ERROR), Not(Contains("version get failed.")));
}

TEST_F(BackupVersion, IsEmptyWithoutTheFiles) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(version(), "");
  EXPECT_THAT(log.messages(TQ_LOG_ERROR), Contains("version get failed."));
  EXPECT_EQ(version_with(""), "");
}

TEST_F(BackupVersion, IsTheLastOne) {
  EXPECT_EQ(version_with("Version: 1\nVersion: 2\nPackage: x\n"), "2");
}

TEST_F(BackupVersion, IsTheValueOfAnyLongKeyThatContainsTheWord) {
  EXPECT_EQ(version_with("TqVersion-Of: 7\n"), "7");
  for (const char* line : {"Version 1\n", "Version:1\n", "version: 1\n", "Vers: 1\n", "Version: \n",
                           "Version:  :\n", "\n", ":\n", ": Version\n", ": : \n"}) {
    EXPECT_EQ(version_with(line), "") << line;
  }
}

TEST_F(BackupVersion, EndsAtABlankOrColon) {
  EXPECT_EQ(version_with("Version: 1.0 beta\n"), "1.0");
  EXPECT_EQ(version_with("Version: 1:2.0\n"), "1");
  EXPECT_EQ(version_with("Version:   3\n"), "3");
}

TEST_F(BackupVersion, LosesItsLineEnd) {
  EXPECT_EQ(version_with("Version: 1.0\r\n", "image-base\r\n"), "1.0");
  EXPECT_EQ(version_with("Version: 1.0", "image-base"), "1.0");
}

// A line has room for 255 characters: a longer one counts as several.
TEST_F(BackupVersion, IsTakenFromPiecesOfALongLine) {
  EXPECT_EQ(version_with("Depends: " + std::string(246, 'd') + "Version: 9\n"), "9");
  EXPECT_EQ(version_with("Version: " + std::string(300, '1') + "\n"), std::string(246, '1'));
}

TEST_F(BackupVersion, IsFoundForPackagesWithLongNames) {
  EXPECT_EQ(version_with("Version: 1\n", std::string(200, 'p') + "\n"), "1");
  const LogCapture log(TQ_LOG_DEBUG);
  const std::string name(700, 'p');  // longer than a file's name may be
  EXPECT_EQ(version_with("", name + "\n"), "");
  EXPECT_TRUE(
      log.contains(TQ_LOG_DEBUG, kUnit,
                   "version of the package file is /usr/lib/opkg/info/" + name + ".control"));
}

}  // namespace
}  // namespace tarvio_test
