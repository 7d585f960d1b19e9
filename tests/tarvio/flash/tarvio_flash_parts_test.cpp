// What the client's backup and restore are made of.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "flash/flash_trace.h"
#include "flash/read_position.h"
#include "support/files.h"
#include "terminal/progress.h"

namespace tarvio_test {
namespace {

using client::event_in;
using client::FlashStep;
using testing::ElementsAre;

TEST(FlashTrace, TellsTheStepsOfABackup) {
  struct Row {
    const char* line;
    FlashStep step;
    const char* file;
    int64_t number;
  };
  for (const Row& row : std::vector<Row>{
           {"tbx backup /dev/mtd1 -> ./boot  len=0x40000 t=11 -  util/x 9", FlashStep::kSaving, "",
            0},
           {"tq_nanddump /dev/mtd1->./boot : st =0x0  len =0x40000 - ", FlashStep::kDumping,
            "./boot", 0},
           {"tq_nanddump result 5  - ", FlashStep::kDumped, "", 5},
           {"\tcheck ECC: 8 uncorrectable bitflip(s) at offset 0x00012000 - result 0  -  util/x 9",
            FlashStep::kUnreadable, "", 0x12000},
           {"tq_mkfs_jffs2 /mnt/root->./rootfs  - ", FlashStep::kDumping, "./rootfs", 0},
           {"tq_mkfs_jffs2 result 0  - ", FlashStep::kDumped, "", 0},
           {"tbx backup done. - ", FlashStep::kLeft, "", 0},
           {"archive area - ./boot - ", FlashStep::kPacking, "./boot", 0},
           {"image type 11 - ", FlashStep::kRestoring, "", 0},
           {"tq_restore flash image ./boot->/dev/mtd1 start 0x0 len 0x1", FlashStep::kErasing,
            "./boot", 0},
           {"tq_erase_flash_all result 2  - ", FlashStep::kErased, "", 2},
           {"tq_erase_flash total result -1  - ", FlashStep::kErased, "", -1},
           {"tq_nandwrite ./boot->/dev/mtd1  - ", FlashStep::kWriting, "./boot", 0},
           {"tq_nandwrite result 28  - ", FlashStep::kWritten, "", 28},
           {"cannot restore image filee ./boot to /dev/mtd1 - ", FlashStep::kNotRestored, "", 0},
       }) {
    const auto event = event_in(row.line);
    ASSERT_TRUE(event) << row.line;
    EXPECT_EQ(event->step, row.step) << row.line;
    EXPECT_EQ(event->file, row.file) << row.line;
    EXPECT_EQ(event->number, row.number) << row.line;
  }
}

// Such as those of package files.
TEST(FlashTrace, TellsNothingOfOtherLines) {
  for (const char* line : {"", "read conf line tq_nanddump result 5 ",
                           "tq_erase_flash_all /dev/mtd1", " archive area - ./boot",
                           "\tcheck ECC: 2 corrected bitflip(s) at offset 0x00012000 - result 0 ",
                           "\tcheck ECC: 2 uncorrectable bitflip(s) at offset 0x - result 0 "}) {
    EXPECT_FALSE(event_in(line)) << line;
  }
}

TEST(FlashTrace, IsCutIntoLines) {
  std::vector<std::string> lines;
  client::LineCutter cutter([&](const std::string& line) { lines.push_back(line); });
  for (const char* piece : {"a", "b\nc\n\nd", "\n", "no end"}) cutter.take(piece);
  EXPECT_THAT(lines, ElementsAre("ab", "c", "", "d"));
}

TEST(FlashTrace, AddsTheLengthOfADumpBeforeItIsCut) {
  const TempDir directory;
  const std::string dump = directory / "dump";
  const int trace = ::open((directory / "trace").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  {
    const client::TraceRelay relay(trace);
    std::printf("tq_nanddump /dev/mtd1->%s : st =0x0\n", dump.c_str());
    write_file(dump, "four");
    std::printf("tq_nanddump result 0 \n");
    EXPECT_EQ(::truncate(dump.c_str(), 1000), 0);
    std::printf("no line");
  }
  ::close(trace);
  EXPECT_EQ(
      read_file(directory / "trace"),
      "tq_nanddump /dev/mtd1->" + dump + " : st =0x0\ntq_nanddump result 0 \ndump of bytes 4\n");
}

TEST(FlashProgress, TellsBytesPercentRateAndTimeLeft) {
  EXPECT_EQ(client::progress_words(0, 1000, 5), "0 bytes of 1000 bytes, 0 %");
  EXPECT_EQ(client::progress_words(3 << 20, 12 << 20, 2),
            "3.0 MiB of 12.0 MiB, 25 %, 1.5 MiB/s, 6 s left");
  EXPECT_EQ(client::progress_words(3 << 20, 12 << 20, 0), "3.0 MiB of 12.0 MiB, 25 %");
  // A dump is of whole blocks, and may be longer than what is kept.
  EXPECT_EQ(client::progress_words(15, 12, 2), "12 bytes of 12 bytes, 100 %, 6 bytes/s, 0 s left");
  EXPECT_EQ(client::progress_words(0, 0, 2), "0 bytes of 0 bytes, 0 %");
}

TEST(FlashProgress, TellsTimes) {
  EXPECT_EQ(client::time_words(0), "0 s");
  EXPECT_EQ(client::time_words(0.1), "1 s");
  EXPECT_EQ(client::time_words(59.5), "1 min 00 s");
  EXPECT_EQ(client::time_words(3725), "62 min 05 s");
}

TEST(FlashProgress, FindsHowFarAProcessHasRead) {
  const TempDir directory;
  const std::string path = directory / "file";
  write_file(path, std::string(1000, 'x'));
  EXPECT_EQ(client::read_position(path), 0U);
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(::lseek(file, 700, SEEK_SET), 700);
  EXPECT_EQ(client::read_position(path), 700U);
  ::close(file);
  EXPECT_EQ(client::read_position(directory / "none"), 0U);
}

}  // namespace
}  // namespace tarvio_test
