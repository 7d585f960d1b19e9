// tarvio backup and tarvio areas.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

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
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

using ClientBackup = FlashClient;

TEST_F(ClientBackup, ListsTheAreas) {
  const FlashRun table = run({"areas"});
  EXPECT_EQ(table.status, 0);
  EXPECT_EQ(table.output,
            "NAME         DEVICE          SIZE       METHOD\n"
            "bootloader   /dev/mtd1       256.0 KiB  raw\n"
            "bootsetting  /dev/mtd2       104.0 KiB  raw\n"
            "kernel       /dev/mtd3       1.9 MiB    raw\n"
            "rootfs       /dev/mtdblock4  60.0 MiB   file system\n"
            "writable     /dev/mtdblock5  64.0 MiB   file system\n"
            "hibernation  /dev/mtd6       115.5 MiB  raw\n");
  const json areas = json::parse(run({"areas", "--json"}).output);
  ASSERT_EQ(areas.size(), 6U);
  EXPECT_EQ(
      areas[2],
      json({{"name", "kernel"}, {"device", "/dev/mtd3"}, {"size", 0x1e0000}, {"method", "raw"}}));
}

TEST_F(ClientBackup, SavesAreasIntoAnImagePackage) {
  const FlashRun ran = back_up({"kernel", "rootfs", "bootloader"});
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_EQ(ran.errors, "");
  EXPECT_THAT(ran.output, MatchesRegex("kernel: read and packed 1.9 MiB in [^\n]*\n"
                                       "rootfs: read and packed 128.0 KiB in [^\n]*\n"
                                       "bootloader: read and packed 256.0 KiB in [^\n]*\n"
                                       "saved kernel, rootfs, bootloader in image.tbx, 2.3 MiB\n"));
  expect_only({"image.tbx"});
  directory_.shell(
      "test \"$(ar t image.tbx | tr '\\n' ' ')\" = 'uImage rootfs boot control.tar.gz '");
  directory_.shell("ar x image.tbx && cmp boot /dev/mtd1");
  keep("kernel", "/dev/mtd3", 0, 0x1e0000);
  directory_.shell("cmp uImage " + (kept_ / "kernel").string());
  directory_.shell("tar xzf control.tar.gz && grep -x 'Package: image.tbx' control");
}

TEST_F(ClientBackup, MayBeQuietOrReportInJson) {
  EXPECT_EQ(back_up({"kernel", "--quiet"}).output, "");
  EXPECT_TRUE(fs::exists("image.tbx"));
  const FlashRun ran = back_up({"kernel", "--overwrite", "--json"});
  const json image = json::parse(ran.output);
  EXPECT_EQ(image["file"], "image.tbx");
  EXPECT_EQ(image["code"], 0);
  EXPECT_EQ(image["size"], fs::file_size("image.tbx"));
  EXPECT_EQ(
      image["areas"],
      json::array(
          {{{"name", "kernel"}, {"size", 0x1e0000}, {"verified", false}, {"failure", nullptr}}}));
}

TEST_F(ClientBackup, SaysInJsonWhichAreasItVerified) {
  const json image = json::parse(back_up({"kernel", "rootfs", "--verify", "--json"}).output);
  EXPECT_EQ(image["areas"][0]["verified"], true);
  EXPECT_EQ(image["areas"][1]["verified"], false);  // a file system is not read again
}

TEST_F(ClientBackup, RefusesANameThatIsNotOneOfAPackageFile) {
  for (const char* name : {"image", "image.ipk", "image.tbx.old", ".tbx"}) {
    const FlashRun ran = run({"backup", "kernel", "--to", name});
    EXPECT_EQ(ran.status, 64);
    EXPECT_THAT(ran.errors, HasSubstr(std::string("file name '") + name + "' must end in .tbx"));
  }
  expect_only({});
}

TEST_F(ClientBackup, SaysThatItMayNotLock) {
  write_file("/run/tarvio-flash.lock", "");
  ::chmod("/run/tarvio-flash.lock", 0);
  const FlashRun ran = run({"backup", "--to", "image.tbx", "kernel"}, give_up_file_permissions);
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(ran.errors,
            "tarvio: cannot back up to 'image.tbx': cannot lock the flash memory with "
            "'/run/tarvio-flash.lock': Permission denied; run tarvio as root (13)\n");
}

TEST_F(ClientBackup, ReportsAClosedOutputOnce) {
  const FlashRun ran =
      run({"backup", "bootloader", "kernel", "--to", "image.tbx"}, [] { ::close(STDOUT_FILENO); });
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(ran.errors, "tarvio: cannot write the output: Bad file descriptor\n");
  EXPECT_EQ(read_file("/run/tarvio-flash.lock"), "");
  expect_only({"image.tbx"});
}

TEST_F(ClientBackup, NamesAnUnknownArea) {
  const FlashRun ran = back_up({"kernel", "kernal"});
  EXPECT_EQ(ran.status, 64);
  EXPECT_THAT(ran.errors, HasSubstr("unknown flash area 'kernal'; 'tarvio areas' lists them"));
  expect_only({});
}

TEST_F(ClientBackup, RefusesAWrongCommandLine) {
  EXPECT_EQ(back_up({}).status, 64);
  EXPECT_EQ(back_up({"kernel", "kernel"}).status, 64);
  EXPECT_EQ(back_up({"kernel", "--workdir", ""}).status, 64);
  EXPECT_EQ(run({"backup", "kernel"}).status, 64);
  for (const char* name : {"", "a b", "x/", "$(reboot)", "a;b", "..", "x'y"}) {
    EXPECT_EQ(run({"backup", "kernel", "--to", name}).status, 64) << name;
  }
  expect_only({});
}

// The directory's name reaches no shell.
TEST_F(ClientBackup, WritesIntoADirectoryOfAnyName) {
  fs::create_directory("a 'b; $(c)");
  const FlashRun ran = run({"backup", "bootloader", "--to", "a 'b; $(c)/image.tbx"});
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_THAT(names_in("a 'b; $(c)"), ElementsAre("image.tbx"));
}

TEST_F(ClientBackup, WorksInAnotherDirectory) {
  fs::create_directory("elsewhere");
  EXPECT_EQ(back_up({"bootloader", "--workdir", "elsewhere"}).status, 0);
  EXPECT_THAT(names_in("elsewhere"), IsEmpty());
  EXPECT_EQ(back_up({"bootloader", "--overwrite", "--workdir", "nowhere"}).status, 1);
  expect_only({"elsewhere", "image.tbx"});
}

TEST_F(ClientBackup, ReplacesAFileOnlyWhenToldTo) {
  write_file("image.tbx", "old");
  const FlashRun ran = back_up({"kernel"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("already exists; use --overwrite to replace it"));
  EXPECT_EQ(read_file("image.tbx"), "old");
  EXPECT_EQ(back_up({"kernel", "--overwrite"}).status, 0);
  EXPECT_THAT(read_file("image.tbx"), StartsWith("!<arch>\n"));
}

TEST_F(ClientBackup, NamesAToolThatIsMissing) {
  for (const auto& [area, tool] : {std::pair<std::string, std::string>{"kernel", "ar"},
                                   {"kernel", "tar"},
                                   {"kernel", "gzip"},
                                   {"kernel", "nanddump"},
                                   {"rootfs", "mkfs.jffs2"}}) {
    const PathWithout path(tool);
    const FlashRun ran = back_up({"bootsetting", area});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.errors, "tarvio: cannot back up to 'image.tbx': the tool " + tool +
                              " is missing; install it, or add its directory to PATH (2)\n");
  }
  expect_only({});
}

TEST_F(ClientBackup, NeedsTheToolsOfItsAreasOnly) {
  ::setenv("PATH", TARVIO_SANDBOX_TOOLS ":/usr/bin:/bin", 1);  // not mkfs.jffs2
  EXPECT_EQ(back_up({"kernel"}).status, 0);
  EXPECT_THAT(back_up({"kernel", "rootfs", "--overwrite"}).errors,
              HasSubstr("the tool mkfs.jffs2 is missing"));
}

TEST_F(ClientBackup, ReplacesNoDirectory) {
  fs::create_directory("image.tbx");
  const FlashRun ran = back_up({"kernel", "--overwrite"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("'image.tbx': is a directory"));
}

TEST_F(ClientBackup, RunsOneAtATime) {
  const int lock = ::open("/run/tarvio-flash.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  const FlashRun ran = back_up({"kernel"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("another backup or restore is running on this device"));
  ::close(lock);
  EXPECT_EQ(back_up({"kernel"}).status, 0);
}

// Who has the installed system mounted there keeps it.
TEST_F(ClientBackup, LeavesAnotherMountAlone) {
  fs::create_directory("other");
  ASSERT_EQ(::mount("other", kOfflineRoot, nullptr, MS_BIND, nullptr), 0);
  const FlashRun ran = back_up({"rootfs"});
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_EQ(::umount(kOfflineRoot), 0);
  expect_only({"image.tbx", "other"});
}

TEST_F(ClientBackup, AsksForRoomFirst) {
  fs::create_directory("small");
  ASSERT_EQ(::mount("small", "small", "tmpfs", 0, "size=1m"), 0);
  const Tool nanddump("nanddump", "true");
  const FlashRun ran = back_up({"kernel", "--workdir", "small"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors,
              HasSubstr("not enough space in 'small': up to 1.9 MiB needed, 1.0 MiB free"));
  EXPECT_EQ(nanddump.runs(), "");
  ::umount2("small", MNT_DETACH);
}

// As an ordinary system may leave it at a power cut.
TEST_F(ClientBackup, RemovesWhatAKilledRunHasLeft) {
  fs::create_directories(".tarvio-flash.abcdef/out");
  write_file(".tarvio-flash.abcdef/out/x", "x");
  write_file(".tarvio-flash.note", "a file");
  EXPECT_EQ(back_up({"kernel"}).status, 0);
  expect_only({".tarvio-flash.note", "image.tbx"});
}

// Restoring the boot settings after it would erase its information block.
TEST_F(ClientBackup, SavesTheHibernationAreaLast) {
  device_.make_area("/dev/mtd6", 1024, std::string("\0\0\0hibernation", 14), {3, 1000});
  EXPECT_THAT(back_up({"hibernation", "bootsetting"}).output,
              EndsWith("\nsaved bootsetting, hibernation in image.tbx, 115.7 MiB\n"));
  directory_.shell("ar p image.tbx control.tar.gz | tar xzO ./tqcontrol >targets");
  EXPECT_THAT(read_file("targets"),
              HasSubstr("TqDataTarget: bootsetting\nTqDataTarget: hibernation\n"));
}

// What the library's result hides.
TEST_F(ClientBackup, ReportsAFailedDump) {
  const Tool nanddump(
      "nanddump",
      in_run(2, "nanddump", "touch ./boot; echo 'error 5 (Input/output error)'; exit 1"));
  const FlashRun ran = back_up({"bootloader", "--json"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("bootloader: reading failed: Input/output error"));
  const json image = json::parse(ran.output);
  EXPECT_EQ(image["code"], 5);
  EXPECT_EQ(image["areas"][0]["failure"], "reading failed: Input/output error");
  expect_only({});
}

TEST_F(ClientBackup, ReportsAFailedDumpOfTheHibernationArea) {
  device_.make_area("/dev/mtd6", 1024, "hibernation ");
  const Tool nanddump(
      "nanddump",
      in_run(4, "nanddump", "touch ./hibernation; echo 'error 5 (Input/output error)'; exit 1"));
  EXPECT_THAT(back_up({"hibernation"}).errors,
              HasSubstr("hibernation: reading failed: Input/output error"));
  expect_only({});
}

TEST_F(ClientBackup, ReportsADumpThatEndedEarlyWithoutAWord) {
  const Tool nanddump("nanddump", in_run(2, "nanddump", "head -c 1000 /dev/mtd1 >boot; exit 0"));
  const FlashRun ran = back_up({"bootloader"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors,
              HasSubstr("bootloader: only 1000 bytes of 256.0 KiB were read into boot"));
  expect_only({});
}

// The tool goes on after such a page, and ends well.
TEST_F(ClientBackup, ReportsAPageThatCannotBeRead) {
  const auto back_up_with = [this](const char* place) {
    const Tool nanddump("nanddump", in_run(2, "nanddump",
                                           "echo 'ECC: 8 uncorrectable bitflip(s) at offset " +
                                               std::string(place) + "'"));
    return back_up({"bootsetting"});
  };
  const FlashRun ran = back_up_with("0x00019800");
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("bootsetting: /dev/mtd2 cannot be read at 0x19800"));
  expect_only({});
  const FlashRun other = back_up_with("0x00120000");  // nothing of that is kept
  EXPECT_EQ(other.status, 0) << other.errors;
}

// The good blocks hold less than a backup keeps: all that they hold is in it.
TEST_F(ClientBackup, AcceptsADumpThatBadBlocksHaveShortened) {
  device_.make_area("/dev/mtd3", 16, "kernel ", {4, 5});
  const FlashRun ran = back_up({"kernel"});
  EXPECT_EQ(ran.status, 0) << ran.errors;
  keep("kernel", "/dev/mtd3", 0, 0x1c0000);
  directory_.shell("ar x image.tbx && cmp -n $((0x1c0000)) uImage " + (kept_ / "kernel").string());
}

TEST_F(ClientBackup, NeedsADeviceThatCanBeRead) {
  fs::remove("/dev/mtd1");
  EXPECT_THAT(back_up({"bootloader"}).errors,
              HasSubstr("cannot read /dev/mtd1: No such file or directory"));
  const Tool nanddump("nanddump", "echo nothing");
  EXPECT_THAT(back_up({"kernel"}).errors,
              HasSubstr("nanddump did not report the number of bad blocks"));
  expect_only({});
}

TEST_F(ClientBackup, ReadsAgainWhenToldTo) {
  EXPECT_EQ(back_up({"kernel", "rootfs", "--verify"}).status, 0);
  const Tool nanddump(
      "nanddump",
      "PATH=${PATH#*:}\nnanddump \"$@\"\nfor file; do :; done\necho $$ | dd of=$file conv=notrunc");
  const FlashRun ran = back_up({"kernel", "--verify", "--overwrite"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(
      ran.errors,
      HasSubstr("kernel: verification failed: /dev/mtd3 differs from uImage at about byte 0"));
  expect_only({"image.tbx"});
}

TEST_F(ClientBackup, LeavesNothingMountedWhenAnImageFails) {
  const Tool mkfs("mkfs.jffs2", "echo 'error 28 (No space left on device)'");
  const FlashRun ran = back_up({"rootfs"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("rootfs: building the image failed: No space left on device"));
  expect_only({});
}

TEST_F(ClientBackup, ReportsAFileSystemThatCannotBeMounted) {
  mounts_.failing = "mount /dev/mtdblock4";
  EXPECT_THAT(back_up({"rootfs"}).errors,
              HasSubstr("rootfs: cannot mount /dev/mtdblock4: Input/output error (5)"));
}

TEST_F(ClientBackup, FailsWithAnImageOfAFileSystemThatIsNotWhole) {
  for (const char* bytes : {"0", "1000", "62914561"}) {
    const Tool mkfs("mkfs.jffs2", std::string("truncate -s ") + bytes + " rootfs");
    EXPECT_THAT(back_up({"rootfs"}).errors, HasSubstr("not a whole number of erase blocks"))
        << bytes;
  }
  const Tool mkfs("mkfs.jffs2", "truncate -s $((0x3c20000)) rootfs");
  EXPECT_THAT(back_up({"rootfs"}).errors, HasSubstr("is larger than its area of 60.0 MiB"));
  expect_only({});
}

}  // namespace
}  // namespace tarvio_test
