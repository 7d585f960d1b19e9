// The room of a flash area: its bad blocks, and how much can be written.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/shell_commands.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/log.h"
#include "tarvio/nand.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "util/tq_nand_util";
constexpr int kBlock = 0x20000;
constexpr int kUnwritten = -7;

class CountBadBlocks : public testing::Test {
 protected:
  // Runs a tool that writes "countbad" and prints the lines.
  int count(const std::string& lines) {
    const ShellCommands commands([&](auto&) { return "touch countbad; printf '" + lines + "'"; });
    const int result = tq_nand_count_badblock("/dev/mtd2", &bad_blocks_);
    commands_ = commands.lines();
    return result;
  }

  const WorkDirectory directory_;
  std::vector<std::string> commands_;
  int bad_blocks_ = kUnwritten;
};

TEST_F(CountBadBlocks, DumpsOneBlockAndRemovesIt) {
  EXPECT_EQ(count("ECC failed: 0\\nNumber of bad blocks: 3\\n"), 0);
  EXPECT_EQ(bad_blocks_, 3);
  EXPECT_THAT(commands_, ElementsAre("nanddump -b -o /dev/mtd2 -l 131072 -f countbad 2>&1"));
  EXPECT_THAT(directory_.names(), IsEmpty());
}

TEST_F(CountBadBlocks, LogsTheLinesUpToTheNumber) {
  const LogCapture log(TQ_LOG_DEBUG);
  count("ECC failed: 0\\nNumber of bad blocks: 3\\nNumber of bad blocks: 4\\n");
  EXPECT_EQ(bad_blocks_, 3);
  EXPECT_THAT(
      unit_messages(log, kUnit),
      ElementsAre("debug: tq_nand_count_badblock  /dev/mtd2 ",
                  "debug: nanddump parse line :ECC failed: 0\n",
                  "debug: nanddump parse line :Number of bad blocks: 3\n", "debug: bad blocks 3"));
}

TEST_F(CountBadBlocks, LeavesTheNumberAloneWithoutALine) {
  for (const char* lines : {"", "ECC failed: 0\\n", " Number of bad blocks: 3\\n",
                            "The Number of bad blocks: 3\\n", "Number of bad block: 3\\n"}) {
    EXPECT_EQ(count(lines), 0) << lines;
    EXPECT_EQ(bad_blocks_, kUnwritten) << lines;
  }
}

TEST_F(CountBadBlocks, EndsAtALineWithoutANumber) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(count("Number of bad blocks: many\\nNumber of bad blocks: 4\\n"), 0);
  EXPECT_EQ(bad_blocks_, kUnwritten);
  EXPECT_TRUE(log.contains(TQ_LOG_DEBUG, kUnit, "bad blocks -7"));
}

TEST_F(CountBadBlocks, DoesNotMindComplaints) {
  EXPECT_EQ(count("Input/output error\\nNumber of bad blocks: 1\\n"), 0);
  EXPECT_EQ(bad_blocks_, 1);
}

TEST_F(CountBadBlocks, RemovesTheFileWithoutAShell) {
  Hook popen("popen", [](const char*, const char*) -> FILE* {
    errno = EAGAIN;
    return nullptr;
  });
  write_file(directory_ / "countbad", "");
  EXPECT_EQ(tq_nand_count_badblock("/dev/mtd2", &bad_blocks_), EAGAIN);
  EXPECT_EQ(bad_blocks_, kUnwritten);
  EXPECT_THAT(directory_.names(), IsEmpty());
}

TEST_F(CountBadBlocks, RemovesTheFileWhateverFails) {
  const auto fails_with = [&](int expected, const char* device, int* bad_blocks) {
    write_file(directory_ / "countbad", "");
    EXPECT_EQ(tq_nand_count_badblock(device, bad_blocks), expected);
    EXPECT_THAT(directory_.names(), IsEmpty()) << expected;
  };
  fails_with(EINVAL, nullptr, &bad_blocks_);
  fails_with(EINVAL, "/dev/mtd2", nullptr);
  fails_with(ENAMETOOLONG, std::string(300, 'x').c_str(), &bad_blocks_);
  const FailAlloc fail(1);
  fails_with(ENOMEM, "/dev/mtd2", &bad_blocks_);
}

class WritableLength : public testing::Test {
 protected:
  int ask(int type, int bad_blocks, uintmax_t file_bytes) {
    write_file(directory_ / "image", "");
    fs::resize_file(directory_ / "image", file_bytes);
    int length = kUnwritten;
    EXPECT_EQ(tq_nand_get_writable_len("image", type, bad_blocks, &length), 0);
    return length;
  }

  const WorkDirectory directory_;
};

TEST_F(WritableLength, IsThatOfAFileThatFits) {
  EXPECT_EQ(ask(6, 0, 0x100000), 0x100000);
  EXPECT_EQ(ask(7, 1, 0x1e0000), 0x1e0000);
  EXPECT_EQ(ask(12, 0, 0), 0);
}

TEST_F(WritableLength, IsTheRoomInTheGoodBlocksOtherwise) {
  EXPECT_EQ(ask(7, 2, 0x1e0000), 0x1c0000);
  EXPECT_EQ(ask(7, 1, 0x1e0001), 0x1e0000);
  EXPECT_EQ(ask(12, 2, 10), 0x1a000 - 2 * kBlock);
}

TEST_F(WritableLength, FollowsTheTableOfAreas) {
  constexpr uintmax_t kLarge = 0x10000000;
  for (const auto& [type, bytes] : {std::pair{6, 0x3c00000},
                                    {7, 0x200000},
                                    {8, 0x8000000},
                                    {9, 0x8000000},
                                    {10, 0x4000000},
                                    {11, 0x40000},
                                    {12, 0x1a000},
                                    {5, 0},
                                    {13, 0},
                                    {0, 0},
                                    {-1, 0}}) {
    EXPECT_EQ(ask(type, 0, kLarge), bytes) << type;
    EXPECT_EQ(ask(type, 1, kLarge), bytes - kBlock) << type;
  }
}

TEST_F(WritableLength, LogsIt) {
  const LogCapture log(TQ_LOG_DEBUG);
  ask(7, 1, 5);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: flash write file size=",
                          "debug: flash area length 2097152 , bad blocks  ",
                          "debug: final flash writable length 5 "));
}

TEST_F(WritableLength, FailsWithoutTheFile) {
  const LogCapture log(TQ_LOG_DEBUG);
  int length = kUnwritten;
  EXPECT_EQ(tq_nand_get_writable_len("none", 7, 0, &length), ENOENT);
  EXPECT_EQ(length, kUnwritten);
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("error: Can't read file size none"));
}

}  // namespace
}  // namespace tarvio_test
