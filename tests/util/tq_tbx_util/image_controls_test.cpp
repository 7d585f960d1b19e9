// The files that an image package is made of besides its areas.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "support/files.h"
#include "support/shell_commands.h"
#include "support/work_directory.h"
#include "tarvio/backup.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;

TEST(ImageControls, AreWrittenWithoutATarget) {
  const WorkDirectory directory;
  EXPECT_EQ(tq_create_image_controls("image.tbx", "1.0"), 0);
  EXPECT_EQ(read_file(directory / "control"),
            "Package: image.tbx\nVersion: 1.0\nMaintainer: Halvern Corporation\n");
  EXPECT_EQ(read_file(directory / "tqcontrol"),
            "TqPackageCategory:  Image\nTqPackageSubCategory: Image_Other\n");
  EXPECT_EQ(tq_create_image_controls("x", nullptr), 0);
  EXPECT_EQ(read_file(directory / "control"),
            "Package: x\nVersion: \nMaintainer: Halvern Corporation\n");
}

TEST(ImageControls, AreNotWrittenWhenTheyCannotBe) {
  const WorkDirectory directory;
  fs::create_directory("control");
  EXPECT_EQ(tq_create_image_controls("x", ""), EISDIR);
  EXPECT_FALSE(directory.has("tqcontrol"));
  fs::remove("control");
  fs::create_directory("tqcontrol");
  EXPECT_EQ(tq_create_image_controls("x", ""), EISDIR);
  EXPECT_EQ(tq_create_image_controls(nullptr, ""), EINVAL);
}

TEST(ImageData, IsCopiedInBlocksWhenTheLengthIsSoMany) {
  EXPECT_THAT(commands_of([] {
                EXPECT_EQ(tq_create_image_data_tgz("/dev/mtd3", "./image", 1024, 4096), 0);
              }),
              ElementsAre("dd if=/dev/mtd3 of=./image bs=1024 count=4 2>&1",
                          "tar cvzf data.tar.gz ./image 2>&1"));
}

TEST(ImageData, IsTheWholeSourceOtherwise) {
  struct Piece {
    int block_size;
    int length;
  };
  for (const Piece piece : {Piece{1024, 4097}, {1024, 0}, {0, 4096}, {0, 0}, {4096, 1024}}) {
    EXPECT_THAT(commands_of([&] {
                  EXPECT_EQ(tq_create_image_data_tgz("s", "i", piece.block_size, piece.length), 0);
                }),
                ElementsAre("dd if=s of=i 2>&1", "tar cvzf data.tar.gz i 2>&1"));
  }
}

TEST(ImageData, IsNotPackedWhenTheCopyFailed) {
  const ShellCommands commands([](auto&) { return "echo Input/output error"; });
  EXPECT_EQ(tq_create_image_data_tgz("s", "i", 0, 0), EIO);
  EXPECT_EQ(commands.lines().size(), 1U);
  EXPECT_EQ(tq_create_image_data_tgz(nullptr, "i", 0, 0), EINVAL);
  EXPECT_EQ(tq_create_image_data_tgz("s", nullptr, 0, 0), EINVAL);
}

TEST(BackupOfFlash, NeedsItsArguments) {
  EXPECT_EQ(tq_backup_jffs2(nullptr, "f"), EINVAL);
  EXPECT_EQ(tq_backup_jffs2("d", nullptr), EINVAL);
  EXPECT_EQ(tq_backup_flash_image(nullptr, "f", 0, 0), EINVAL);
  EXPECT_EQ(tq_backup_flash_image("d", nullptr, 0, 0), EINVAL);
}

}  // namespace
}  // namespace tarvio_test
