// tarvio doctor: the device.
#include "doctor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "support/com/sockets.h"
#include "support/files.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

TEST_F(Doctor, FindsNothingWrongWithADeviceThatHasAll) {
  const Ran ran = run({"--json"});
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.errors, "");
  std::vector<std::string> checks;
  for (const Json& each : Json::parse(ran.output)) {
    checks.push_back(each["check"]);
    EXPECT_EQ(each["status"], "ok") << each;
    EXPECT_NE(each["found"], "");
    EXPECT_EQ(each["remedy"], nullptr);
  }
  EXPECT_THAT(checks,
              ElementsAre("work directory", "opkg", "ar", "tar", "gzip", "df", "dd", "nanddump",
                          "nandwrite", "flash_erase", "flash_eraseall", "mkfs.jffs2", "isolation",
                          "root", "opkg directories", "package policy", "keys", "area bootloader",
                          "area bootsetting", "area kernel", "area rootfs", "area writable",
                          "area hibernation", "backup space", "socket", "manager", "descriptors",
                          "system log"));
}

TEST_F(Doctor, PrintsATableWithTheRemedies) {
  write_kernel_command_line("console=ttyAMA0\n");
  const Ran ran = run();
  write_kernel_command_line("root=/dev/mtdblock4\n");
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.output, StartsWith("CHECK             STATUS  FOUND\n"
                                     "work directory    ok      /run/tmp\n"));
  EXPECT_THAT(ran.output,
              HasSubstr("root              failed  the kernel's command line names no root, so "
                        "packages are below /mnt/root, where nothing is mounted\n"
                        "                          remedy: boot with root=/dev/mtdblock4, or "
                        "mount the installed root file system on /mnt/root\n"));
  EXPECT_THAT(ran.errors, StartsWith("tarvio: "));
  EXPECT_THAT(ran.errors, EndsWith(" of 28 checks failed\n"));
}

TEST_F(Doctor, LeavesNothingBehind) {
  const TempDir temporary;
  (void)look({}, [&] { ::setenv("TMPDIR", temporary.path().c_str(), 1); });
  EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
}

TEST_F(Doctor, GoesOnWithoutAWorkDirectory) {
  const Json rows = look({}, [] { ::setenv("TMPDIR", "/no/such", 1); });
  EXPECT_EQ(row(rows, "work directory")["found"],
            "cannot create a work directory '/no/such/tarvio.XXXXXX': No such file or directory");
  EXPECT_THAT(std::string(row(rows, "ar")["found"]),
              EndsWith("/ar, which needs a work directory to be checked"));
  EXPECT_EQ(row(rows, "ar")["status"], "failed");
  EXPECT_EQ(row(rows, "area kernel")["status"], "ok");
}

// The root.

TEST_F(Doctor, NamesTheRootThatPackagesAreBelow) {
  EXPECT_EQ(row_of("root"),
            expected("root", "ok", "the kernel's root is /dev/mtdblock4; packages are below /"));
}

TEST_F(Doctor, FindsTheInstalledRootWhereItIsMounted) {
  const MountedMemory installed("/mnt/root");
  write_kernel_command_line("root=/dev/mtdblock5\n");
  const Json row = row_of("root");
  write_kernel_command_line("root=/dev/mtdblock4\n");
  EXPECT_EQ(row, expected("root", "ok",
                          "the kernel's root is /dev/mtdblock5; packages are below /mnt/root, "
                          "where memory is mounted"));
}

// opkg's directories, below an installed root of their own.

class DoctorOfPackages : public Doctor {
 protected:
  DoctorOfPackages() { write_kernel_command_line("root=/dev/mtdblock5\n"); }
  ~DoctorOfPackages() override { write_kernel_command_line("root=/dev/mtdblock4\n"); }

  static void make(const std::string& directory) {
    std::filesystem::create_directories("/mnt/root/" + directory);
  }
  Json of_release(const std::string& release) const {
    return row_of("opkg directories", [release] { ::setenv("OPKG_PROFILE", release.c_str(), 1); });
  }

  static constexpr char kRemedy[] =
      "add 'option info_dir /usr/lib/opkg/info' to /mnt/root/etc/opkg/opkg.conf";

 private:
  const MountedMemory root_{"/mnt/root"};
};

TEST_F(DoctorOfPackages, CountsThem) {
  make("usr/lib/opkg/info");
  write_file("/mnt/root/usr/lib/opkg/info/clock.control", "Package: clock\n");
  EXPECT_EQ(of_release("0.2.4"),
            expected("opkg directories", "ok", "/mnt/root/usr/lib/opkg/info, 1 package"));
}

TEST_F(DoctorOfPackages, WarnsOfAReleaseThatWillNotAddToThem) {
  make("usr/lib/opkg/info");
  write_file("/mnt/root/usr/lib/opkg/info/clock.control", "Package: clock\n");
  EXPECT_EQ(of_release("0.3.6"),
            expected("opkg directories", "warning",
                     "/mnt/root/usr/lib/opkg/info, 1 package, and opkg 0.3.6 will keep new ones "
                     "elsewhere",
                     kRemedy));
  EXPECT_EQ(of_release("of-today")["status"], "ok");
}

TEST_F(DoctorOfPackages, AreConfiguredElsewhere) {
  make("usr/lib/opkg/info");
  make("etc/opkg");
  write_file("/mnt/root/etc/opkg/board.conf", "option info_dir /opt/elsewhere\n");
  const Json row = expected("opkg directories", "failed",
                            "opkg keeps its information in /mnt/root/opt/elsewhere",
                            "change info_dir to /usr/lib/opkg/info in "
                            "/mnt/root/etc/opkg/board.conf");
  EXPECT_EQ(of_release("0.2.4"), row);
  write_file("/mnt/root/usr/lib/opkg/info/clock.control", "Package: clock\n");
  EXPECT_EQ(of_release("0.3.6"), row);
}

TEST_F(DoctorOfPackages, FindsThemElsewhere) {
  make("usr/lib/opkg/info");
  make("var/lib/opkg/info");
  write_file("/mnt/root/var/lib/opkg/info/clock.control", "Package: clock\n");
  EXPECT_EQ(of_release("0.3.6"),
            expected("opkg directories", "failed",
                     "opkg keeps its information in /mnt/root/var/lib/opkg/info", kRemedy));
}

TEST_F(DoctorOfPackages, KnowsWhereAReleaseWillKeepThem) {
  make("usr/lib/opkg/info");
  EXPECT_EQ(of_release("0.2.4"), expected("opkg directories", "ok",
                                          "/mnt/root/usr/lib/opkg/info, no package is installed"));
  EXPECT_EQ(
      of_release("0.3.6"),
      expected("opkg directories", "failed",
               "opkg 0.3.6 does not keep its information in /mnt/root/usr/lib/opkg/info", kRemedy));
  EXPECT_EQ(
      of_release("of-today"),
      expected("opkg directories", "failed",
               "/mnt/root/usr/lib/opkg/info, no package is installed, and where opkg will keep "
               "its information is not known",
               kRemedy));
}

TEST_F(DoctorOfPackages, BelievesTheConfiguration) {
  make("usr/lib/opkg/info");
  make("etc/opkg");
  for (const char* const place :
       {"/usr/lib/opkg/info", "/usr/lib/opkg/info/", "\"/usr/lib/opkg/info\""}) {
    write_file("/mnt/root/etc/opkg/opkg.conf", std::string("option info_dir ") + place + '\n');
    EXPECT_EQ(of_release("0.9.0-libsolv")["status"], "ok") << place;
  }
}

TEST_F(DoctorOfPackages, MissTheirDirectory) {
  EXPECT_EQ(of_release("0.2.4"), expected("opkg directories", "failed",
                                          "/mnt/root/usr/lib/opkg/info: No such file or directory",
                                          "mkdir -p /mnt/root/usr/lib/opkg/info"));
}

TEST_F(Doctor, DoesNotAskForOpkgsDirectoriesWhereNothingIsMounted) {
  std::filesystem::create_directories("/mnt/root/usr/lib/opkg/info");
  write_kernel_command_line("root=/dev/mtdblock5\n");
  const Json row = row_of("opkg directories");
  write_kernel_command_line("root=/dev/mtdblock4\n");
  std::filesystem::remove_all("/mnt/root/usr");
  EXPECT_EQ(row, expected("opkg directories", "failed",
                          "/mnt/root/usr/lib/opkg/info, where nothing is mounted on /mnt/root",
                          "see 'root' above"));
}

TEST_F(DoctorOfPackages, MayNotBeReadOnly) {
  make("usr/lib/opkg/info");
  ASSERT_EQ(::mount("memory", "/mnt/root", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
  EXPECT_EQ(of_release("0.2.4")["found"],
            "/mnt/root/usr/lib/opkg/info cannot be written: Read-only file system");
}

// The flash memory.

TEST_F(Doctor, DescribesTheFlashMemory) {
  add_partition(3, 0x200000, 0x20000, 1);
  const Json rows = look();
  EXPECT_EQ(row(rows, "area kernel"),
            expected("area kernel", "ok",
                     "/dev/mtd3: 2.0 MiB, erase blocks of 128.0 KiB, 1 of them bad"));
  EXPECT_EQ(row(rows, "area hibernation")["found"],
            "/dev/mtd2: 2.0 MiB, erase blocks of 128.0 KiB, 0 of them bad; "
            "/dev/mtd6: 128.0 MiB, erase blocks of 128.0 KiB, 0 of them bad");
}

struct WrongPartition {
  const char* name;
  std::function<void()> make;
  const char* area;
  const char* status;
  const char* found;
  const char* remedy;
};

void PrintTo(const WrongPartition& partition, std::ostream* out) { *out << partition.name; }

class WrongFlash : public Doctor, public testing::WithParamInterface<WrongPartition> {
 public:
  using Doctor::add_partition;
};

TEST_P(WrongFlash, IsNotOk) {
  GetParam().make();
  EXPECT_EQ(row_of(GetParam().area),
            expected(GetParam().area, GetParam().status, GetParam().found, GetParam().remedy));
}

INSTANTIATE_TEST_SUITE_P(
    Doctor, WrongFlash,
    testing::Values(
        WrongPartition{"IsMissing", [] { std::filesystem::remove_all("/sys/class/mtd/mtd3"); },
                       "area kernel", "failed", "no such partition: /sys/class/mtd/mtd3",
                       "mount /sys, and name the partition in the device tree or in mtdparts="},
        WrongPartition{"HasNoFile", [] { std::filesystem::remove("/dev/mtdblock4"); },
                       "area rootfs", "failed", "/dev/mtdblock4: No such file or directory",
                       "mount devtmpfs on /dev, and load mtdblock"},
        WrongPartition{"HasARegularFile",
                       [] {
                         std::filesystem::remove("/dev/mtd3");
                         write_file("/dev/mtd3", "image");
                       },
                       "area kernel", "failed", "/dev/mtd3 is not a device file",
                       "remove it, mount devtmpfs on /dev, and load mtdblock"},
        WrongPartition{"IsTooSmall", [] { WrongFlash::add_partition(3, 0x1e0000); }, "area kernel",
                       "failed",
                       "/dev/mtd3 has 1.9 MiB (1966080 bytes), and the area ends at 2.0 MiB "
                       "(2097152 bytes)",
                       "make the partition 2.0 MiB (2097152 bytes)"},
        WrongPartition{"HasNoRoomForTheInformationBlock",
                       [] { WrongFlash::add_partition(2, 0x180000); }, "area hibernation", "failed",
                       "/dev/mtd2 has 1.5 MiB (1572864 bytes), and the area ends at 1.6 MiB "
                       "(1703936 bytes)",
                       "make the partition at least 1.6 MiB (1703936 bytes)"},
        WrongPartition{"IsTooLarge", [] { WrongFlash::add_partition(3, 0x400000); }, "area kernel",
                       "warning",
                       "/dev/mtd3 has 4.0 MiB (4194304 bytes), and the area only 2.0 MiB (2097152 "
                       "bytes): a backup leaves the rest out",
                       "make the partition 2.0 MiB (2097152 bytes)"},
        WrongPartition{"HasOtherBlocks", [] { WrongFlash::add_partition(3, 0x200000, 0x10000); },
                       "area kernel", "failed", "/dev/mtd3 has erase blocks of 64.0 KiB",
                       "use flash memory with erase blocks of 128.0 KiB"},
        WrongPartition{"HasManyBadBlocks",
                       [] { WrongFlash::add_partition(3, 0x200000, 0x20000, 2); }, "area kernel",
                       "warning",
                       "/dev/mtd3: bad blocks leave 1.8 MiB of the 1.9 MiB that a backup keeps",
                       "write shorter images only, or replace the flash memory"},
        WrongPartition{"DoesNotCountBadBlocks",
                       [] { std::filesystem::remove("/sys/class/mtd/mtd3/bad_blocks"); },
                       "area kernel", "warning",
                       "/dev/mtd3: the kernel does not report the number of bad blocks",
                       "use a kernel with /sys/class/mtd/mtdN/bad_blocks"}),
    [](const auto& partition) { return partition.param.name; });

// The space for a backup.

TEST_F(Doctor, FindsTheSpaceForABackup) {
  EXPECT_EQ(row_of("backup space"),
            expected("backup space", "ok",
                     "'/run/tmp/room' has the 599.3 MiB that a backup of all areas may take"));
}

TEST_F(Doctor, MissesTheSpaceForABackup) {
  const MountedMemory small("/run/tmp/small", "1m");
  const OneReply manager(kOwnVersion);
  const Ran ran = run_tarvio({"doctor", "/run/tmp/small", "--json", "--timeout", "300"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(row(Json::parse(ran.output), "backup space"),
            expected("backup space", "failed",
                     "for all areas: not enough space in '/run/tmp/small': up to 599.3 MiB "
                     "needed, 1.0 MiB free",
                     "name a directory that exists and has more space"));
}

TEST_F(Doctor, OnlyWarnsOfADirectoryThatWasNotNamed) {
  const MountedMemory small("/run/tmp/small", "1m");
  const OneReply manager(kOwnVersion);
  const Ran ran = run_tarvio({"doctor", "--json", "--timeout", "300"},
                             [] { std::filesystem::current_path("/run/tmp/small"); });
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(row(Json::parse(ran.output), "backup space"),
            expected("backup space", "warning",
                     "for all areas: not enough space in '.': up to 599.3 MiB needed, 1.0 MiB free",
                     "name the directory of the backups: tarvio doctor DIR"));
}

}  // namespace
}  // namespace tarvio_test
