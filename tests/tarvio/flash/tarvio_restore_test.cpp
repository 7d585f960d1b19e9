// tarvio restore.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "support/flash/flash_client.h"
#include "support/packages/tarvio_packages.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;

class ClientRestore : public FlashClient {
 protected:
  // A package of these areas, and a device without them.
  void lose(const std::vector<std::string>& areas) {
    keep("boot", "/dev/mtd1", 0, 0x40000);
    keep("kernel", "/dev/mtd3", 0, 0x1e0000);
    const FlashRun ran = back_up(areas);
    ASSERT_EQ(ran.status, 0) << ran.errors;
    for (const char* device : {"/dev/mtd1", "/dev/mtd2", "/dev/mtd3", "/dev/mtd4", "/dev/mtd5"}) {
      wipe(device);
    }
  }

  // A package with another tqcontrol.
  void retarget(const std::string& tqcontrol) const {
    write_file("tqcontrol", tqcontrol);
    directory_.shell(
        "printf 'Package: image.tbx\\nVersion: 1\\n' >control && "
        "tar czf control.tar.gz ./control ./tqcontrol && ar r image.tbx control.tar.gz && "
        "rm control tqcontrol control.tar.gz");
  }

  // Nothing was erased, so that what the devices held is still there.
  void expect_refused(const FlashRun& ran, const std::string& why) const {
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(ran.errors, HasSubstr(why));
    EXPECT_THAT(ran.errors, HasSubstr("nothing was written"));
    expect_only({"image.tbx"});
  }
};

TEST_F(ClientRestore, GivesEveryAreaBack) {
  device_.make_area("/dev/mtd6", 1024, std::string("\0\0\0hibernation", 14), {3, 1000});
  keep("settings", "/dev/mtd2", 0, 0x1a000);
  keep("information", "/dev/mtd2", 0x120000, 0x20000);
  keep("hibernation", "/dev/mtd6", 0, 0x7380000);
  lose({"bootloader", "bootsetting", "kernel", "rootfs", "writable", "hibernation"});
  wipe("/dev/mtd6");
  const FlashRun ran = restore();
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_EQ(ran.errors, "");
  expect_only({"image.tbx"});
  expect_holds("/dev/mtd1", 0, "boot");
  expect_holds("/dev/mtd2", 0, "settings");
  expect_holds("/dev/mtd2", 0x120000, "information");
  expect_holds("/dev/mtd3", 0, "kernel");
  expect_holds("/dev/mtd6", 0, "hibernation");
  directory_.shell("ar x image.tbx && mv rootfs writable-region " + kept_.path().string());
  expect_holds("/dev/mtd4", 0, "rootfs");
  expect_holds("/dev/mtd5", 0, "writable-region");
}

TEST_F(ClientRestore, ReportsWhatItDoes) {
  lose({"kernel", "bootloader"});
  EXPECT_THAT(restore().output, MatchesRegex("kernel: written 1.9 MiB in [^\n]*\n"
                                             "bootloader: written 256.0 KiB in [^\n]*\n"
                                             "kernel: verified 1.9 MiB in [^\n]*\n"
                                             "bootloader: verified 256.0 KiB in [^\n]*\n"
                                             "restored kernel, bootloader from image.tbx\n"));
  EXPECT_EQ(restore({"--quiet"}).output, "");
  const json image = json::parse(restore({"--json", "--no-verify"}).output);
  EXPECT_EQ(image["code"], 0);
  EXPECT_EQ(image["areas"][0], json({{"name", "kernel"},
                                     {"size", 0x1e0000},
                                     {"state", "written"},
                                     {"verified", false},
                                     {"failure", nullptr}}));
}

TEST_F(ClientRestore, VerifiesByDefault) {
  lose({"kernel"});
  const Tool nandwrite("nandwrite", "true");
  const FlashRun ran = restore({"--json"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(
      ran.errors,
      HasSubstr("kernel: verification failed: /dev/mtd3 differs from uImage at about byte 0"));
  EXPECT_EQ(json::parse(ran.output)["areas"][0]["state"], "unfinished");
  EXPECT_EQ(restore({"--no-verify"}).status, 0);
}

TEST_F(ClientRestore, WritesNothingWithoutAnAnswer) {
  lose({"kernel"});
  expect_refused(run({"restore", "image.tbx"}, [] { ::close(STDIN_FILENO); }),
                 "cannot ask for confirmation without a terminal; use --yes");
  EXPECT_TRUE(is_erased("/dev/mtd3"));
}

// The library goes on by contract, and its result is 0.
TEST_F(ClientRestore, ReportsEachAreaThatFails) {
  lose({"kernel", "rootfs", "bootloader"});
  const Tool nandwrite("nandwrite",
                       in_run(1, "nandwrite", "echo 'error 5 (Input/output error)'; exit 1"));
  const Tool erase("flash_eraseall",
                   in_run(2, "flash_eraseall", "echo 'error 5 (Input/output error)'; exit 1"));
  const FlashRun ran = restore({"--json"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("tarvio: kernel: writing failed: Input/output error\n"));
  EXPECT_THAT(ran.errors, HasSubstr("tarvio: rootfs: erasing failed: Input/output error\n"));
  EXPECT_THAT(ran.errors,
              HasSubstr("cannot restore 'image.tbx': kernel, rootfs failed; erased or half "
                        "written: kernel, rootfs; written: bootloader (5)\n"));
  const json image = json::parse(ran.output);
  EXPECT_EQ(image["areas"][1]["state"], "unfinished");
  EXPECT_EQ(image["areas"][2]["state"], "written");
  EXPECT_EQ(image["areas"][2]["verified"], true);
  expect_holds("/dev/mtd1", 0, "boot");
  expect_only({"image.tbx"});
}

TEST_F(ClientRestore, KeepsTheRootOfTheRunningSystem) {
  lose({"rootfs", "writable"});
  write_kernel_command_line("root=/dev/mtdblock4 rw\n");
  expect_refused(restore(), "rootfs: the system is running from it; use --force to write anyway");
  write_kernel_command_line("rw root=/dev/mtdblock5\n");
  expect_refused(restore(), "writable: the system is running from it");
  EXPECT_TRUE(is_erased("/dev/mtd4"));
  EXPECT_EQ(restore({"--force"}).status, 0);
}

TEST_F(ClientRestore, DoesNotTakeForUnusedWhatCannotBeFoundOut) {
  lose({"rootfs"});
  write_kernel_command_line("");
  expect_refused(restore(),
                 "cannot read '/proc/cmdline', so what uses the flash memory is not known; use "
                 "--force to write anyway");
  EXPECT_TRUE(is_erased("/dev/mtd4"));
}

TEST_F(ClientRestore, RefusesAPackageWhoseTargetsAreNotJustAreas) {
  lose({"kernel"});
  const std::string image = "TqPackageCategory: Image\n";
  const std::string kernel = "TqDataTarget: kernel\n";
  struct Row {
    std::string tqcontrol;
    const char* why;
  };
  std::string many = image;
  for (int line = 0; line < 10000; ++line) many += kernel;
  const std::vector<Row> rows = {
      {"TqPackageCategory: Application\n" + kernel, "not an image package"},
      {"TqPackageCategory: Other\n" + kernel, "not an image package"},
      {image, "lists no flash area"},
      {image + "TqDataTarget: kernel rootfs\n", "unknown flash area 'kernel rootfs'"},
      {image + "TqDataTarget: \n", "unknown flash area ''"},
      {image + "TqDataTarget: mykernel\n", "unknown flash area 'mykernel'"},
      {image + kernel + kernel, "lists flash area 'kernel' twice"},
      {many, "lists flash area 'kernel' twice"},
      {image + kernel + "TqDataTarget: rootfs\n", "rootfs: member rootfs is missing"},
  };
  for (const Row& row : rows) {
    retarget(row.tqcontrol);
    expect_refused(restore(), row.why);
  }
  EXPECT_TRUE(is_erased("/dev/mtd3"));
}

TEST_F(ClientRestore, RefusesFilesThatCannotBeWrittenWhole) {
  lose({"kernel"});
  struct Row {
    const char* change;
    const char* why;
  };
  const std::vector<Row> rows = {
      {"truncate -s 0 uImage", "uImage is empty"},
      {"truncate -s 2097153 uImage", "is larger than its area of 2.0 MiB"},
      {"truncate -s 1000 uImage", "uImage is not a whole number of pages of 2048 bytes"},
      {"yes | head -c 2097152 >uImage", "does not fit into the good blocks of /dev/mtd3"},
  };
  for (const Row& row : rows) {
    directory_.shell("ar x image.tbx uImage");
    directory_.shell(std::string(row.change) + " && ar r image.tbx uImage && rm uImage");
    expect_refused(restore(), row.why);
  }
  EXPECT_TRUE(is_erased("/dev/mtd3"));
}

// The zeros that a backup of an area with many bad blocks ends in are not part of its data.
TEST_F(ClientRestore, WritesWhatFitsButForTheFill) {
  device_.make_area("/dev/mtd3", 16, "kernel ", {4, 5});
  ASSERT_EQ(back_up({"kernel"}).status, 0);
  wipe("/dev/mtd3");
  const FlashRun ran = restore();
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_FALSE(is_erased("/dev/mtd3"));
}

TEST_F(ClientRestore, RefusesADamagedPackage) {
  lose({"kernel"});
  directory_.shell("truncate -s -1000000 image.tbx");
  expect_refused(restore(), "damaged or not a package file");
  write_file("image.tbx", "no archive");
  expect_refused(restore(), "not a package file");
  write_file("image.tbx", "");
  expect_refused(restore(), "not a package file");
  fs::remove("image.tbx");
  EXPECT_THAT(restore().errors, HasSubstr("No such file or directory"));
}

TEST_F(ClientRestore, RefusesASecondFileOfAnArea) {
  lose({"kernel"});
  directory_.shell("ar x image.tbx uImage && ar q image.tbx uImage && rm uImage");
  expect_refused(restore(), "member uImage occurs more than once");
}

TEST_F(ClientRestore, RefusesAnOrderThatLosesTheHibernationArea) {
  device_.make_area("/dev/mtd6", 1024, "hibernation ");
  lose({"bootsetting", "hibernation"});
  retarget("TqPackageCategory: Image\nTqDataTarget: hibernation\nTqDataTarget: bootsetting\n");
  expect_refused(restore(), "lists bootsetting after hibernation");
}

TEST_F(ClientRestore, NamesAToolThatIsMissing) {
  lose({"kernel"});
  for (const auto& [area, tool] : {std::pair<std::string, std::string>{"kernel", "gzip"},
                                   {"kernel", "nanddump"},
                                   {"kernel", "flash_eraseall"},
                                   {"kernel", "nandwrite"},
                                   {"hibernation", "flash_erase"}}) {
    retarget("TqPackageCategory: Image\nTqPackageSubCategory: x\nTqDataTarget: " + area + "\n");
    const PathWithout path(tool);
    expect_refused(restore(), "the tool " + tool +
                                  " is missing; install it, or add its directory to PATH; nothing "
                                  "was written");
  }
}

TEST_F(ClientRestore, WorksInAnotherDirectory) {
  lose({"bootloader"});
  fs::create_directories("elsewhere");
  EXPECT_EQ(restore({"--workdir", "elsewhere"}).status, 0);
  expect_holds("/dev/mtd1", 0, "boot");
  expect_only({"elsewhere", "image.tbx"});
  EXPECT_TRUE(fs::is_empty("elsewhere"));
}

}  // namespace
}  // namespace tarvio_test
