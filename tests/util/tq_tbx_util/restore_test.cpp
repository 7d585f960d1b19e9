// Writing the areas of image packages back to the flash.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/log_capture.h"
#include "support/operands.h"
#include "support/shell_commands.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/backup.h"
#include "tarvio/log.h"
#include "tarvio/nand.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kUnit[] = "util/tq_tbx_util";
constexpr char kImage[] = "TqPackageCategory:  Image\nTqPackageSubCategory: Image_Other\n";

using Lines = std::vector<std::string>;

// What the library does with flash tools that do nothing, and real ar and tar.
class Restore : public testing::Test {
 protected:
  Restore() { fs::create_directory(directory_ / "work"); }

  void build(const std::string& tqcontrol) const {
    write_file(directory_ / "tqcontrol", tqcontrol);
    directory_.shell(
        "tar czf control.tar.gz ./tqcontrol; rm -f image.tbx; ar rc image.tbx control.tar.gz");
  }

  // Of "../image.tbx", with the command lines after those that read the control files.
  int restore(const std::string& package = "../image.tbx") {
    const fs::path before = fs::current_path();
    const ShellCommands commands([&](const std::string& line) { return tool(line); });
    const int result = tq_tbx_restore(package.c_str(), "work");
    EXPECT_EQ(fs::current_path(), before);
    commands_.clear();
    for (const std::string& line : commands.lines()) {
      if (line.find("control") == std::string::npos) commands_.push_back(line);
    }
    return result;
  }

  int restore_targets(const std::vector<std::string>& targets) {
    std::string text = kImage;
    for (const std::string& target : targets) text += "TqDataTarget: " + target + "\n";
    build(text);
    return restore();
  }

  const WorkDirectory directory_;
  Lines commands_;
  std::string failing_;  // the beginning of the command lines that fail

 private:
  std::string tool(const std::string& line) const {
    if (!failing_.empty() && line.starts_with(failing_)) return "echo Input/output error";
    return line.find("control") != std::string::npos ? line : "true";
  }
};

Lines steps_of(const std::string& file, const std::string& device) {
  return {"ar xv ../image.tbx " + file + " 2>&1", "flash_eraseall " + device + " 2>&1",
          "nandwrite " + device + " " + file + " 2>&1"};
}

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(Restore, UnpacksErasesAndWritesEachArea) {
  EXPECT_EQ(restore_targets({"bootloader"}), 0);
  EXPECT_THAT(commands_, ElementsAreArray(steps_of("./boot", "/dev/mtd1")));
  EXPECT_EQ(restore_targets({"bootsetting"}), 0);
  EXPECT_THAT(commands_, ElementsAreArray(steps_of("./bootsetting", "/dev/mtd2")));
  EXPECT_EQ(restore_targets({"kernel"}), 0);
  EXPECT_THAT(commands_, ElementsAreArray(steps_of("./uImage", "/dev/mtd3")));
  EXPECT_EQ(restore_targets({"rootfs"}), 0);
  EXPECT_THAT(commands_, ElementsAreArray(steps_of("./rootfs", "/dev/mtd4")));
  EXPECT_EQ(restore_targets({"writable"}), 0);
  EXPECT_THAT(commands_, ElementsAreArray(steps_of("./writable-region", "/dev/mtd5")));
}

TEST_F(Restore, OfTheHibernationAreaErasesFourBlocksForItsInformation) {
  EXPECT_EQ(restore_targets({"hibernation"}), 0);
  EXPECT_THAT(
      commands_,
      ElementsAreArray(
          Lines{"ar xv ../image.tbx ./hibernationinfo 2>&1",
                "flash_erase /dev/mtd2 0x120000 1 2>&1", "flash_erase /dev/mtd2 0x140000 1 2>&1",
                "flash_erase /dev/mtd2 0x160000 1 2>&1", "flash_erase /dev/mtd2 0x180000 1 2>&1",
                "nandwrite /dev/mtd2 -s 0x120000 ./hibernationinfo 2>&1"} +
          steps_of("./hibernation", "/dev/mtd6")));
}

TEST_F(Restore, FollowsTheOrderOfTheLines) {
  EXPECT_EQ(restore_targets({"kernel", "rootfs", "kernel"}), 0);
  const Lines kernel = steps_of("./uImage", "/dev/mtd3");
  EXPECT_THAT(commands_, ElementsAreArray(kernel + steps_of("./rootfs", "/dev/mtd4") + kernel));
}

// The information block at 0x120000 is on the boot settings' device (oddities 142 and 153).
TEST_F(Restore, OfBootSettingsErasesTheirWholeDevice) {
  EXPECT_EQ(restore_targets({"hibernation", "bootsetting"}), 0);
  ASSERT_GE(commands_.size(), 3U);
  EXPECT_THAT(Lines(commands_.end() - 3, commands_.end()),
              ElementsAreArray(steps_of("./bootsetting", "/dev/mtd2")));
}

TEST_F(Restore, TakesTheFirstAreaWhoseNameOccursInTheLine) {
  const struct {
    const char* target;
    const char* device;
  } rows[] = {
      {"hibernation kernel", "/dev/mtd3"},
      {"rootfs, kernel", "/dev/mtd3"},
      {"kernel bootloader", "/dev/mtd1"},
      {"mykernel2", "/dev/mtd3"},
      {"bootsettings", "/dev/mtd2"},
      {"Kernel", "/dev/mtd1"},
      {"", "/dev/mtd1"},
      {"boot", "/dev/mtd1"},
      {"writable rootfs", "/dev/mtd4"},
      {"root fs writable", "/dev/mtd5"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(restore_targets({row.target}), 0);
    EXPECT_THAT(commands_, Contains(std::string("flash_eraseall ") + row.device + " 2>&1"))
        << row.target;
    EXPECT_EQ(commands_.size(), 3U) << row.target;
  }
}

TEST_F(Restore, WithoutTargetsWritesNothing) {
  const LogCapture log(TQ_LOG_DEBUG);
  build(kImage);
  EXPECT_EQ(restore(), 0);
  EXPECT_THAT(commands_, IsEmpty());
  EXPECT_TRUE(log.contains(TQ_LOG_DEBUG, kUnit, "found 0 images "));
}

TEST_F(Restore, OfManyTargetsWritesEachTime) {
  EXPECT_EQ(restore_targets(Lines(50, "kernel")), 0);
  EXPECT_EQ(commands_.size(), 150U);
}

TEST_F(Restore, RefusesAnApplication) {
  const LogCapture log(TQ_LOG_DEBUG);
  build("TqPackageCategory: Application\nTqDataTarget: kernel\n");
  EXPECT_EQ(restore(), EINVAL);
  EXPECT_THAT(commands_, IsEmpty());
  EXPECT_TRUE(log.contains(TQ_LOG_INFO, kUnit, "File ../image.tbx is not image"));
}

TEST_F(Restore, TakesEveryOtherCategoryForAnImage) {
  build("TqPackageCategory: Something\nTqDataTarget: kernel\n");
  EXPECT_EQ(restore(), 0);
  EXPECT_EQ(commands_.size(), 3U);
}

TEST_F(Restore, FailsWithoutThePackage) {
  EXPECT_EQ(restore("../none.tbx"), ENOENT);
  EXPECT_THAT(commands_, IsEmpty());
}

TEST_F(Restore, FailsWithoutItsWorkDirectory) {
  build(kImage);
  fs::remove(directory_ / "work");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(restore(), ENOENT);
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(Restore, OfNoPackageTakesTheFilesThatAreThere) {
  build(std::string(kImage) + "TqDataTarget: kernel\nTqDataTarget: hibernation\n");
  fs::rename(directory_ / "control.tar.gz", directory_ / "work/control.tar.gz");
  EXPECT_EQ(restore(""), 0);
  EXPECT_THAT(
      commands_,
      ElementsAre("flash_eraseall /dev/mtd3 2>&1", "nandwrite /dev/mtd3 ./uImage 2>&1",
                  "flash_erase /dev/mtd2 0x120000 1 2>&1", "flash_erase /dev/mtd2 0x140000 1 2>&1",
                  "flash_erase /dev/mtd2 0x160000 1 2>&1", "flash_erase /dev/mtd2 0x180000 1 2>&1",
                  "nandwrite /dev/mtd2 -s 0x120000 ./hibernationinfo 2>&1",
                  "flash_eraseall /dev/mtd6 2>&1", "nandwrite /dev/mtd6 ./hibernation 2>&1"));
}

TEST_F(Restore, NeedsItsArguments) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_THAT(commands_of([] {
                EXPECT_EQ(tq_tbx_restore(nullptr, "work"), EINVAL);
                EXPECT_EQ(tq_tbx_restore("p", nullptr), EINVAL);
                EXPECT_EQ(tq_tbx_resotore_image(nullptr, "f", "d", 1, 7), EINVAL);
                EXPECT_EQ(tq_tbx_resotore_image("p", nullptr, "d", 1, 7), EINVAL);
                EXPECT_EQ(tq_tbx_resotore_image("p", "f", nullptr, 1, 7), EINVAL);
                EXPECT_EQ(tq_restore_flash_image(nullptr, "d", 0, 1), EINVAL);
                EXPECT_EQ(tq_restore_flash_image("f", nullptr, 0, 1), EINVAL);
              }),
              IsEmpty());
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(Restore, RefusesAPackageWithAShellMetacharacter) {
  for (const std::string& name : refused_operands()) {
    const LogCapture log(TQ_LOG_WARNING);
    EXPECT_EQ(restore(name), EINVAL) << name;
    EXPECT_THAT(commands_of([&] {
                  EXPECT_EQ(tq_lib_backup_restore(name.c_str(), "work"), EINVAL);
                  EXPECT_EQ(tq_tbx_resotore_image(name.c_str(), "f", "d", 1, TQ_IMAGE_HIBERNATION),
                            EINVAL);
                }),
                IsEmpty());
    EXPECT_THAT(commands_, IsEmpty());
    const std::string detection = "tq_tbx_get_package_type: " + name + ": ";
    EXPECT_THAT(log.messages(TQ_LOG_WARNING),
                ElementsAre(StartsWith(detection), StartsWith(detection),
                            StartsWith("tq_tbx_resotore_image: " + name + ": ")));
  }
}

// Every file of the areas must have room in its command line before the first one is erased.
TEST_F(Restore, RefusesAPackageThatNoCommandLineHolds) {
  const auto restore_from = [&](const char* area, size_t name_bytes) {
    build(std::string(kImage) + "TqDataTarget: kernel\nTqDataTarget: " + area + "\n");
    const std::string name(name_bytes, 'x');
    fs::rename("image.tbx", name);
    return restore("../" + name);
  };
  const size_t room = 255 - std::string("ar xv ../ ./hibernationinfo 2>&1").size();
  for (const char* area : {"hibernation", "writable"}) {
    EXPECT_EQ(restore_from(area, room), 0);
    EXPECT_THAT(commands_, Not(IsEmpty()));
    const LogCapture log(TQ_LOG_WARNING);
    EXPECT_EQ(restore_from(area, room + 1), ENAMETOOLONG);
    EXPECT_THAT(commands_, IsEmpty());
    EXPECT_EQ(log.messages(TQ_LOG_WARNING).size(), 1U);
  }
  EXPECT_EQ(restore_from("rootfs", room + 1), 0);
  EXPECT_EQ(commands_.size(), 6U);
  EXPECT_EQ(restore_from("rootfs", room + 2), ENAMETOOLONG);
  EXPECT_THAT(commands_, IsEmpty());
}

TEST_F(Restore, LogsWhatItDoes) {
  build(std::string(kImage) + "TqDataTarget: kernel\n");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(restore(), 0);
  const Lines messages = unit_messages(log, kUnit);
  ASSERT_GE(messages.size(), 4U);
  EXPECT_THAT(Lines(messages.end() - 4, messages.end()),
              ElementsAre("debug: found 1 images ", "debug: image type 7",
                          "debug: tbx restore image ../image.tbx ./uImage->/dev/mtd3 7 ",
                          "debug: tq_restore flash image ./uImage->/dev/mtd3 start 0x0 "
                          "len 0x200000"));
}

TEST_F(Restore, LogsTheLengthOfEachArea) {
  const LogCapture log(TQ_LOG_DEBUG);
  restore_targets({"bootloader", "bootsetting", "rootfs", "writable", "hibernation"});
  const Lines messages = unit_messages(log, kUnit);
  for (const char* end :
       {"./boot->/dev/mtd1 start 0x0 len 0x40000", "./bootsetting->/dev/mtd2 start 0x0 len 0x1a000",
        "./rootfs->/dev/mtd4 start 0x0 len 0x3c00000",
        "./writable-region->/dev/mtd5 start 0x0 len 0x4000000",
        "./hibernationinfo->/dev/mtd2 start 0x120000 len 0x80000",
        "./hibernation->/dev/mtd6 start 0x0 len 0x8000000"}) {
    EXPECT_THAT(messages, Contains(std::string("debug: tq_restore flash image ") + end));
  }
}

TEST_F(Restore, GoesOnWithTheNextAreaWhenAnEraseFails) {
  failing_ = "flash_eraseall /dev/mtd3";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(restore_targets({"kernel", "rootfs"}), 0);
  EXPECT_THAT(commands_, Not(Contains("nandwrite /dev/mtd3 ./uImage 2>&1")));
  EXPECT_EQ(commands_.back(), "nandwrite /dev/mtd4 ./rootfs 2>&1");
  EXPECT_THAT(
      log.messages(TQ_LOG_ERROR),
      ElementsAre("erase flash error 5", "tq_restore_flash_image error /dev/mtd3 ->./uImage",
                  "restore failed ../image.tbx -> /dev/mtd3 type:7"));
  EXPECT_TRUE(
      log.contains(TQ_LOG_DEBUG, kUnit, "cannot restore image filee ./uImage to /dev/mtd3"));
}

TEST_F(Restore, GoesOnWithTheNextAreaWhenAWriteFails) {
  failing_ = "nandwrite /dev/mtd3";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(restore_targets({"kernel", "rootfs"}), 0);
  EXPECT_EQ(commands_.back(), "nandwrite /dev/mtd4 ./rootfs 2>&1");
  EXPECT_THAT(log.messages(TQ_LOG_ERROR),
              ElementsAre("tq_restore_flash_image error /dev/mtd3 ->./uImage",
                          "restore failed ../image.tbx -> /dev/mtd3 type:7"));
}

TEST_F(Restore, WritesAnAreaThatCannotBeUnpacked) {
  failing_ = "ar xv ../image.tbx ./uImage";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(restore_targets({"kernel"}), 0);
  EXPECT_EQ(commands_.back(), "nandwrite /dev/mtd3 ./uImage 2>&1");
  EXPECT_TRUE(
      log.contains(TQ_LOG_DEBUG, kUnit, "cannot extract image file ./uImage from ../image.tbx"));
}

TEST_F(Restore, FailsAHibernationAreaWhoseInformationCannotBeUnpacked) {
  failing_ = "ar xv ../image.tbx ./hibernationinfo";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(restore_targets({"hibernation"}), 0);
  EXPECT_EQ(commands_.size(), 1U);
  EXPECT_TRUE(log.contains(TQ_LOG_DEBUG, kUnit,
                           "cannot extract image file ./hibernationinfo from ../image.tbx"));
  EXPECT_THAT(log.messages(TQ_LOG_ERROR),
              ElementsAre("restore failed ../image.tbx -> /dev/mtd6 type:8"));
}

TEST_F(Restore, GoesOnWithAHibernationAreaWhoseInformationCannotBeWritten) {
  failing_ = "nandwrite /dev/mtd2";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(restore_targets({"hibernation"}), 0);
  EXPECT_EQ(commands_.back(), "nandwrite /dev/mtd6 ./hibernation 2>&1");
  // The area's own file and device (oddity 151).
  EXPECT_TRUE(
      log.contains(TQ_LOG_DEBUG, kUnit, "cannot restore image filee ./hibernation to /dev/mtd6"));
  EXPECT_THAT(log.messages(TQ_LOG_ERROR),
              ElementsAre("tq_restore_flash_image error /dev/mtd2 ->./hibernationinfo"));
}

TEST_F(Restore, OfOneAreaReportsTheStepThatFailed) {
  const auto result_with = [](const std::string& failing) {
    const ShellCommands commands([&](const std::string& line) -> std::string {
      return line.starts_with(failing) ? "echo No space left on device" : "true";
    });
    return tq_tbx_resotore_image("p", "./hibernation", "/dev/mtd6", 1, TQ_IMAGE_HIBERNATION);
  };
  EXPECT_EQ(result_with("nothing"), 0);
  EXPECT_EQ(result_with("ar xv p ./hibernationinfo"), ENOSPC);
  EXPECT_EQ(result_with("flash_erase /dev/mtd2"), 0);
  EXPECT_EQ(result_with("nandwrite /dev/mtd2"), 0);
  EXPECT_EQ(result_with("ar xv p ./hibernation "), 0);
  EXPECT_EQ(result_with("flash_eraseall"), ENOSPC);
  EXPECT_EQ(result_with("nandwrite /dev/mtd6"), ENOSPC);
}

TEST_F(Restore, OfARangeErasesItAlone) {
  EXPECT_THAT(commands_of([] { EXPECT_EQ(tq_restore_flash_image("f", "d", 0x20000, 0x40000), 0); }),
              ElementsAre("flash_erase d 0x20000 1 2>&1", "flash_erase d 0x40000 1 2>&1",
                          "nandwrite d -s 0x20000 f 2>&1"));
  EXPECT_THAT(commands_of([] { EXPECT_EQ(tq_restore_flash_image("f", "d", 0x20000, 10), -1); }),
              IsEmpty());
  EXPECT_THAT(commands_of([] { EXPECT_EQ(tq_restore_flash_image("f", "d", 0, 10), 0); }),
              ElementsAre("flash_eraseall d 2>&1", "nandwrite d f 2>&1"));
}

TEST_F(Restore, LeavesNoDescriptorOpen) {
  restore_targets({"kernel"});
  const auto before = open_descriptors();
  restore_targets({"kernel", "hibernation"});
  failing_ = "nandwrite";
  restore_targets({"kernel"});
  restore("../none.tbx");
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Restore, ForClientsIsTheSame) {
  build(std::string(kImage) + "TqDataTarget: kernel\n");
  EXPECT_EQ(tq_lib_backup_restore("../none.tbx", "work"), ENOENT);
  EXPECT_EQ(tq_lib_backup_restore("x", "none"), ENOENT);
  EXPECT_EQ(tq_lib_backup_restore(nullptr, "work"), EINVAL);
}

// Whatever allocation fails, the directory is the caller's again.
TEST_F(Restore, SurvivesWithoutMemory) {
  build(std::string(kImage) + "TqDataTarget: kernel\n");
  const fs::path before = fs::current_path();
  const ShellCommands commands([](const std::string& line) {
    return line.find("control") != std::string::npos ? line : std::string("true");
  });
  for (int n = 1;; ++n) {
    const FailAlloc fail(n);
    (void)tq_tbx_restore("../image.tbx", "work");
    EXPECT_EQ(fs::current_path(), before);
    if (!fail.happened()) break;
  }
}

}  // namespace
}  // namespace tarvio_test
