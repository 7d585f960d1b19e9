// Saving flash areas into image packages.
#include "tarvio/backup.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/flash/backup_run.h"
#include "support/flash/flash_device.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/operands.h"
#include "support/shell_commands.h"
#include "support/string_list.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kUnit[] = "util/tq_tbx_util";

TEST_F(Backup, OfARawAreaDumpsAndPacksIt) {
  EXPECT_EQ(back_up({"kernel"}), 0);
  EXPECT_THAT(commands_, ElementsAre("nanddump -b -o /dev/mtd3 -f ./uImage 2>&1",
                                     "ar rv image.tbx ./uImage 2>&1",
                                     "tar cvzf control.tar.gz ./control ./tqcontrol 2>&1",
                                     "ar rv image.tbx ./control.tar.gz 2>&1"));
  EXPECT_EQ(fs::file_size(directory_ / "work/uImage"), 0x1e0000U);
}

TEST_F(Backup, OfAFileSystemRebuildsIt) {
  const FlashDevice device;
  EXPECT_EQ(back_up({"rootfs", "writable"}), 0);
  EXPECT_THAT(commands_,
              ElementsAre("mkfs.jffs2 -x lzo --root=/mnt/root --output=./rootfs --pad "
                          "--little-endian --eraseblock=0x20000 -n 2>&1",
                          "ar rv image.tbx ./rootfs 2>&1",
                          "mkfs.jffs2 -x lzo --root=/mnt/root --output=./writable-region --pad "
                          "--little-endian --eraseblock=0x20000 -n 2>&1",
                          "ar rv image.tbx ./writable-region 2>&1",
                          "tar cvzf control.tar.gz ./control ./tqcontrol 2>&1",
                          "ar rv image.tbx ./control.tar.gz 2>&1"));
  EXPECT_THAT(mounts_.calls,
              ElementsAre("mount /dev/mtdblock4 /mnt/root jffs2 8", "umount /mnt/root",
                          "mount /dev/mtdblock5 /mnt/root jffs2 8", "umount /mnt/root"));
}

TEST_F(Backup, OfTheHibernationAreaTakesItsInformationFirst) {
  EXPECT_EQ(back_up({"hibernation"}), 0);
  EXPECT_THAT(
      commands_,
      ElementsAre("nanddump -b -o /dev/mtd2 -s 0x120000 -f ./hibernationinfo 2>&1",
                  "nanddump -b -o /dev/mtd6 -f ./hibernation 2>&1",
                  "ar rv image.tbx ./hibernationinfo 2>&1", "ar rv image.tbx ./hibernation 2>&1",
                  "tar cvzf control.tar.gz ./control ./tqcontrol 2>&1",
                  "ar rv image.tbx ./control.tar.gz 2>&1"));
  EXPECT_THAT(work_files(), ElementsAre("hibernation"));  // the information's file is deleted
  EXPECT_EQ(fs::file_size(directory_ / "work/hibernation"), 0x7380000U);
}

TEST_F(Backup, CutsEachRawAreaToItsLength) {
  EXPECT_EQ(back_up({"bootloader", "bootsetting", "hibernation"}, nullptr, 0), 0);
  EXPECT_EQ(fs::file_size(directory_ / "work/boot"), 0x40000U);
  EXPECT_EQ(fs::file_size(directory_ / "work/bootsetting"), 0x1a000U);
  EXPECT_EQ(fs::file_size(directory_ / "work/hibernationinfo"), 0x20000U);
}

TEST_F(Backup, WithoutArchivePacksOnlyTheControlFiles) {
  EXPECT_EQ(back_up({"kernel"}, "image.tbx", 0), 0);
  EXPECT_THAT(commands_, ElementsAre("nanddump -b -o /dev/mtd3 -f ./uImage 2>&1",
                                     "tar cvzf control.tar.gz ./control ./tqcontrol 2>&1"));
  EXPECT_THAT(work_files(), ElementsAre("control.tar.gz", "uImage"));
}

TEST_F(Backup, DeletesTheControlFilesOncePacked) {
  EXPECT_EQ(back_up({"kernel"}), 0);
  EXPECT_THAT(work_files(), ElementsAre("uImage"));
}

TEST_F(Backup, KeepsTheControlFilesThatCannotBePacked) {
  failing_ = "tar";
  EXPECT_EQ(back_up({"kernel"}), EIO);
  EXPECT_THAT(work_files(), ElementsAre("control", "tqcontrol", "uImage"));
}

TEST_F(Backup, KeepsTheControlArchiveThatCannotBeAdded) {
  failing_ = "ar rv image.tbx ./control";
  EXPECT_EQ(back_up({"kernel"}), EIO);
  EXPECT_THAT(work_files(), ElementsAre("control.tar.gz", "uImage"));
}

TEST_F(Backup, OfNoAreaPacksTheControlFilesAlone) {
  EXPECT_EQ(back_up({}), 0);
  EXPECT_THAT(commands_, ElementsAre("tar cvzf control.tar.gz ./control ./tqcontrol 2>&1",
                                     "ar rv image.tbx ./control.tar.gz 2>&1"));
}

TEST_F(Backup, WritesATargetForEachAreaInTheirOrder) {
  failing_ = "tar";  // so that the files stay
  back_up({"kernel", "hibernation", "bootsetting", "bootloader", "kernel"});
  EXPECT_EQ(tqcontrol(),
            "TqPackageCategory:  Image\nTqPackageSubCategory: Image_Other\n"
            "TqDataTarget: kernel\nTqDataTarget: hibernation\nTqDataTarget: bootsetting\n"
            "TqDataTarget: bootloader\nTqDataTarget: kernel\n");
}

TEST_F(Backup, OfAnUnknownAreaIsThatOfTheBootLoader) {
  failing_ = "tar";
  for (const char* area : {"", "Kernel", "kernel ", "root", "rootfs2"}) {
    back_up({area});
    EXPECT_THAT(commands_, Contains("nanddump -b -o /dev/mtd1 -f ./boot 2>&1")) << area;
    EXPECT_THAT(tqcontrol(), testing::EndsWith("TqDataTarget: bootloader\n"));
  }
}

TEST_F(Backup, NamesThePackageByItsFile) {
  failing_ = "tar";
  for (const auto& [dest, name] : {std::pair{"image.tbx", "image.tbx"},
                                   {"/run/tmp/x/a.b.tbx", "a.b.tbx"},
                                   {"", "SystemImage"},
                                   {"directory/", "directory"}}) {
    back_up({"kernel"}, dest, 0);
    EXPECT_EQ(control(),
              "Package: " + std::string(name) + "\nVersion: \nMaintainer: Halvern Corporation\n");
  }
  back_up({"kernel"}, nullptr, 0);
  EXPECT_THAT(control(), StartsWith("Package: SystemImage\n"));
}

TEST_F(Backup, NeedsItsArguments) {
  const LogCapture log(TQ_LOG_DEBUG);
  const StringList list;
  EXPECT_EQ(tq_tbx_backup_areas(nullptr, "work", "image.tbx", 1), EINVAL);
  EXPECT_EQ(tq_tbx_backup_areas(list.get(), nullptr, "image.tbx", 1), EINVAL);
  EXPECT_EQ(tq_tbx_backup_areas(list.get(), "work", nullptr, 1), EINVAL);
  EXPECT_THAT(log.records(), IsEmpty());
  EXPECT_THAT(work_files(), IsEmpty());
  EXPECT_THAT(mounts_.calls, IsEmpty());
}

TEST_F(Backup, RefusesADestinationThatNoCommandLineHolds) {
  const FlashDevice device;
  const struct {
    const char* area;
    const char* longest_file;
  } rows[] = {{"hibernation", "./hibernationinfo"},
              {"kernel", "./control.tar.gz"},
              {"writable", "./writable-region"}};
  for (const auto& row : rows) {
    const size_t room = 255 - std::string("ar rv   2>&1").size() - std::strlen(row.longest_file);
    EXPECT_EQ(back_up({row.area, "kernel"}, std::string(room, 'x').c_str()), 0);
    EXPECT_EQ(back_up({"kernel", row.area}, std::string(room + 1, 'x').c_str()), ENAMETOOLONG);
    EXPECT_THAT(commands_, IsEmpty());
  }
  EXPECT_EQ(back_up({"kernel"}, std::string(1000, 'x').c_str(), 0), 0);  // nothing is packed
}

TEST_F(Backup, RefusesADestinationWithAShellMetacharacter) {
  const StringList none;
  for (const std::string& name : refused_operands()) {
    const LogCapture log(TQ_LOG_WARNING);
    EXPECT_EQ(back_up({"kernel"}, name.c_str()), EINVAL) << name;
    EXPECT_THAT(commands_, IsEmpty());
    EXPECT_EQ(tq_lib_backup_areas(none.get(), "work", name.c_str(), 1), EINVAL);
    const auto warning = StartsWith("tq_tbx_backup_areas: " + name + ": ");
    EXPECT_THAT(log.messages(TQ_LOG_WARNING), ElementsAre(warning, warning));
  }
  EXPECT_THAT(work_files(), IsEmpty());
  EXPECT_THAT(mounts_.calls, IsEmpty());
  EXPECT_EQ(back_up({"kernel"}, "a b", 0), 0);  // nothing is packed
}

TEST_F(Backup, FailsWithoutItsWorkDirectory) {
  fs::remove(directory_ / "work");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(back_up({"kernel"}), ENOENT);
  EXPECT_THAT(commands_, IsEmpty());
  EXPECT_THAT(log.messages(TQ_LOG_ERROR), Contains("can't change directory work"));
}

TEST_F(Backup, StopsAtTheFirstAreaThatFails) {
  failing_ = "ar rv image.tbx ./uImage";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(back_up({"bootloader", "kernel", "bootsetting"}), EIO);
  EXPECT_EQ(commands_.back(), "ar rv image.tbx ./uImage 2>&1");
  EXPECT_THAT(work_files(), ElementsAre("boot", "control", "tqcontrol", "uImage"));
  const std::vector<std::string> messages = unit_messages(log, kUnit);
  ASSERT_GE(messages.size(), 3U);
  EXPECT_THAT(std::vector(messages.end() - 3, messages.end()),
              ElementsAre("error: archive failed image.tbx", "debug: tbx backup done.",
                          "error: backup failed /dev/mtd3->./uImage"));
}

TEST_F(Backup, FailsWithARawAreaThatCannotBeCut) {
  Hook truncate("truncate", [](const char*, off_t) {
    errno = ENOSPC;
    return -1;
  });
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(back_up({"kernel"}), -1);
  const std::vector<std::string> messages = unit_messages(log, kUnit);
  ASSERT_GE(messages.size(), 4U);
  EXPECT_THAT(
      std::vector(messages.end() - 4, messages.end()),
      ElementsAre("error: backup flash image /dev/mtd3 error", "error: backup failed - /dev/mtd3",
                  "debug: tbx backup done.", "error: backup failed /dev/mtd3->./uImage"));
}

TEST_F(Backup, DoesNotNoticeAFailedDump) {
  failing_ = "nanddump";
  for (const char* file : {"boot", "uImage"}) write_file(directory_ / "work" / file, "old");
  EXPECT_EQ(back_up({"bootloader", "kernel"}), 0);
}

TEST_F(Backup, DoesNotNoticeAFailedDumpOfThePackedHibernationArea) {
  Hook truncate("truncate", [](const char*, off_t) { return -1; });
  EXPECT_EQ(back_up({"hibernation"}), 0);
  EXPECT_EQ(back_up({"hibernation"}, nullptr, 0), -1);
}

TEST_F(Backup, DoesNotJudgeTheDumpOfTheHibernationInformation) {
  Hook truncate("truncate", [](const char* file, off_t length) {
    return std::string(file) == "./hibernationinfo" ? -1 : ::truncate(file, length);
  });
  EXPECT_EQ(back_up({"hibernation"}, nullptr, 0), 0);
}

TEST_F(Backup, KeepsHibernationInformationThatCannotBePacked) {
  failing_ = "ar rv image.tbx ./hibernationinfo";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(back_up({"hibernation"}), EIO);
  EXPECT_THAT(work_files(), Contains("hibernationinfo"));
  EXPECT_THAT(log.messages(TQ_LOG_ERROR), Contains("backup failed failed image.tbx"));
}

TEST_F(Backup, FailsWithAFileSystemThatCannotBeMounted) {
  mounts_.failing = "mount";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(back_up({"rootfs", "kernel"}), -1);
  EXPECT_THAT(commands_, IsEmpty());
  const std::vector<std::string> messages = unit_messages(log, kUnit);
  ASSERT_GE(messages.size(), 7U);
  EXPECT_THAT(std::vector(messages.end() - 7, messages.end()),
              ElementsAre("debug:  backup jffs2 image /dev/mtdblock4 -> ./rootfs",
                          "debug: mount dev /dev/mtdblock4 -> /mnt/root", "error: mount failed -1",
                          "error: backup jffs2 image error /dev/mtdblock4->./rootfs",
                          "error: backup failed - /dev/mtdblock4", "debug: tbx backup done.",
                          "error: backup failed /dev/mtdblock4->./rootfs"));
}

TEST_F(Backup, LeavesAFileSystemMountedWhoseImageFailed) {
  const FlashDevice device;
  failing_ = "mkfs.jffs2";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(back_up({"writable"}), EIO);
  EXPECT_TRUE(is_mounted(kOfflineRoot));
  const std::string twice = "backup jffs2 image error /dev/mtdblock5->./writable-region";
  EXPECT_THAT(log.messages(TQ_LOG_ERROR), testing::IsSupersetOf({twice, twice}));
}

TEST_F(Backup, LogsWhatItDoes) {
  const LogCapture log(TQ_LOG_DEBUG);
  write_kernel_command_line(kOnline);
  EXPECT_EQ(back_up({"kernel"}), 0);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: workdir - work , dest file - image.tbx",
                          "debug: get package name image.tbx", "debug: get tbx version start",
                          "error: version get failed.", "debug: get package version ",
                          "debug: change dir work", "debug: creating control file..",
                          "debug: create tqcontrol file", "debug: now handling img's index 2",
                          "debug: append image info to the tqcontrol file 7",
                          "debug: create kernel image control file",
                          "error: print backup files /dev/mtd3 -> ./uImage ",
                          "debug: tbx backup /dev/mtd3 -> ./uImage  len=0x1e0000 t=7",
                          "debug: tq backup flash image /dev/mtd3 -> ./uImage",
                          "debug: archive area - ./uImage", "debug: tbx backup done."));
}

TEST_F(Backup, LogsAnAreaThatIsNotPacked) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(back_up({"hibernation"}, nullptr, 0), 0);
  const std::vector<std::string> messages = unit_messages(log, kUnit);
  EXPECT_THAT(messages, Contains("debug: workdir - work , archive - 0"));
  EXPECT_THAT(messages, Contains("debug: get package name SystemImage"));
  EXPECT_THAT(messages,
              Contains("debug: tbx backup /dev/mtd6 -> ./hibernation  len=0x7380000 t=8"));
  EXPECT_THAT(messages, Not(Contains("debug: archive resume info")));
}

TEST_F(Backup, LogsTheHibernationInformation) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(back_up({"hibernation"}), 0);
  const std::vector<std::string> messages = unit_messages(log, kUnit);
  EXPECT_THAT(messages, testing::IsSupersetOf({"debug: archive resume info",
                                               "debug: unlink - ./hibernationinfo",
                                               "debug: archive area - ./hibernation"}));
}

TEST_F(Backup, LeavesNoDescriptorOpen) {
  back_up({"kernel"});
  const auto before = open_descriptors();
  back_up({"kernel"});
  failing_ = "ar";
  back_up({"kernel"});
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Backup, ForClientsLogsItsArguments) {
  const LogCapture log(TQ_LOG_DEBUG);
  const ShellCommands commands;
  const StringList none;
  EXPECT_EQ(tq_lib_backup_areas(none.get(), "work", "image.tbx", 0), 0);
  EXPECT_EQ(tq_lib_backup_areas(none.get(), "work", nullptr, 0), 0);
  EXPECT_EQ(tq_lib_backup_areas(none.get(), "work", nullptr, 7), EINVAL);
  EXPECT_THAT(
      unit_messages(log, "lib/tq_lib_backup"),
      ElementsAre("debug: workdir - work , dest file - image.tbx",
                  "debug: workdir - work , archive - 0", "debug: workdir - work , archive - 7"));
}

TEST_F(Backup, ReservedCallsDoNothing) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_THAT(commands_of([] {
                EXPECT_EQ(tq_lib_backup_all(), 0);
                EXPECT_EQ(tq_lib_backup_rootfs(), 0);
                EXPECT_EQ(tq_lib_backup_kernel(), 0);
              }),
              IsEmpty());
  EXPECT_THAT(log.records(), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
