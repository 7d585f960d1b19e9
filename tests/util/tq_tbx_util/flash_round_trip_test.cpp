// Areas saved and written back, by the real archive tools and stand-ins for the flash tools.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/flash/flash_device.h"
#include "support/string_list.h"
#include "support/work_directory.h"
#include "tarvio/backup.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

constexpr size_t kBlock = 0x20000;

class FlashRoundTrip : public testing::Test {
 protected:
  FlashRoundTrip() {
    device_.make_area("/dev/mtd1", 2, "boot loader ");
    device_.make_area("/dev/mtd2", 16, "boot settings ", {5});
    device_.make_area("/dev/mtd3", 16, "kernel ", {4});
    device_.make_area("/dev/mtd4", 4, "root file system ", {1});
    device_.make_area("/dev/mtd5", 4, "writable ", {0, 2});
    write_file("/dev/mtdblock4.tree/root", "of the root file system\n");
    write_file("/dev/mtdblock5.tree/data", std::string(200000, 'd'));
    fs::create_directory(directory_ / "work");
  }

  int back_up(const std::vector<const char*>& areas) const {
    StringList list;
    for (const char* area : areas) list.add(area);
    return tq_lib_backup_areas(list.get(), "work", (directory_ / "image.tbx").c_str(), 1);
  }

  // In a directory of its own, so that no file of the backup helps.
  int restore() const {
    fs::create_directories(directory_ / "unpacked");
    return tq_lib_backup_restore((directory_ / "image.tbx").c_str(), "unpacked");
  }

  void wipe(const std::string& device) const { directory_.shell("flash_eraseall " + device); }

  // Keeps what the good blocks of an area hold from a place on, as a file of this name.
  void keep(const std::string& name, const std::string& device, size_t start,
            uintmax_t bytes) const {
    directory_.shell("nanddump -b -o " + device + " -s " + std::to_string(start) + " -f " + name +
                     " 2>&1 && truncate -s " + std::to_string(bytes) + " " + name);
  }
  // Whether they hold just the bytes of such a file.
  void expect_holds(const std::string& device, size_t start, const std::string& name) const {
    keep("now", device, start, fs::file_size(directory_ / name));
    directory_.shell("cmp now " + name);
  }

  const WorkDirectory directory_;
  const FlashDevice device_;
  MountHooks mounts_;
};

TEST_F(FlashRoundTrip, GivesEveryAreaBack) {
  device_.make_area("/dev/mtd6", 1024, std::string("\0\0\0hibernation", 14), {3, 1000});
  keep("boot", "/dev/mtd1", 0, 0x40000);
  keep("settings", "/dev/mtd2", 0, 0x1a000);
  keep("information", "/dev/mtd2", 0x120000, kBlock);
  keep("kernel", "/dev/mtd3", 0, 0x1e0000);
  keep("hibernation", "/dev/mtd6", 0, 0x7380000);
  ASSERT_EQ(back_up({"bootsetting", "bootloader", "kernel", "rootfs", "writable", "hibernation"}),
            0);
  EXPECT_FALSE(is_mounted(kOfflineRoot));
  directory_.shell(
      "mv work/rootfs work/writable-region .; rm -r work; grep -q data writable-region");
  EXPECT_EQ(fs::file_size(directory_ / "rootfs") % kBlock, 0U);

  for (const int area : {1, 2, 3, 4, 5, 6}) wipe("/dev/mtd" + std::to_string(area));
  ASSERT_EQ(restore(), 0);
  expect_holds("/dev/mtd1", 0, "boot");
  expect_holds("/dev/mtd2", 0, "settings");
  expect_holds("/dev/mtd2", 0x120000, "information");
  expect_holds("/dev/mtd3", 0, "kernel");
  expect_holds("/dev/mtd4", 0, "rootfs");
  expect_holds("/dev/mtd5", 0, "writable-region");
  expect_holds("/dev/mtd6", 0, "hibernation");
}

TEST_F(FlashRoundTrip, ErasesWhatLiesBehindTheImage) {
  ASSERT_EQ(back_up({"bootsetting"}), 0);
  ASSERT_EQ(restore(), 0);
  write_file(directory_ / "erased", std::string(10 * kBlock, '\377'));
  expect_holds("/dev/mtd2", kBlock, "erased");
}

TEST_F(FlashRoundTrip, KeepsTheMembersInTheOrderOfTheRequest) {
  ASSERT_EQ(back_up({"kernel", "bootloader"}), 0);
  directory_.shell("test \"$(ar t image.tbx | tr '\\n' ' ')\" = 'uImage boot control.tar.gz '");
  directory_.shell(
      "test \"$(ar p image.tbx control.tar.gz | tar tz | tr '\\n' ' ')\" = './control ./tqcontrol "
      "'");
}

// Each run of each tool fails once, with a message of the system: nothing crashes, the directory is
// the caller's again, and the next backup works.
class FlashToolFailure : public FlashRoundTrip, public testing::WithParamInterface<const char*> {
 protected:
  // The tool fails in its n-th run; false when it did not run so often.
  static std::string failing_run(const std::string& tool, int n) {
    return "if [ $(wc -l <\"${0%/*}/arguments\") = " + std::to_string(n) + " ]; then echo '" +
           tool + ": Input/output error'; exit 1; fi\nPATH=${PATH#*:}\nexec " + tool + " \"$@\"";
  }
  static int runs(const Tool& tool) {
    const std::string text = tool.runs();
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
  }
};

TEST_P(FlashToolFailure, LeavesEverythingReadyForTheNextRun) {
  const std::vector<const char*> areas = {"bootloader", "kernel", "rootfs"};
  const fs::path before = fs::current_path();
  int failures = 0;
  for (int n = 1;; ++n) {
    fs::remove(directory_ / "image.tbx");
    device_.make_area("/dev/mtd3", 16, "kernel ", {4});  // a failed write leaves it erased
    const Tool tool(GetParam(), failing_run(GetParam(), n));
    const int backed_up = back_up(areas);
    const int restored = backed_up == 0 ? restore() : 0;
    EXPECT_EQ(fs::current_path(), before);
    if (runs(tool) < n) {
      EXPECT_EQ(backed_up, 0);
      EXPECT_EQ(restored, 0);
      break;
    }
    ++failures;
    while (is_mounted(kOfflineRoot)) ::umount(kOfflineRoot);
  }
  EXPECT_GT(failures, 0);
  write_file(directory_ / "beginning", "kernel ");
  expect_holds("/dev/mtd3", 0, "beginning");
}

INSTANTIATE_TEST_SUITE_P(Each, FlashToolFailure,
                         testing::Values("nanddump", "mkfs.jffs2", "ar", "tar", "flash_eraseall",
                                         "nandwrite"));

}  // namespace
}  // namespace tarvio_test
