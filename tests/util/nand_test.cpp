// The wrappers of the flash tools.
#include "tarvio/nand.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/shell_commands.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "util/tq_nand_util";
constexpr int kBlock = 0x20000;
constexpr int kUnwritten = -7;

std::string prints(const std::string& text) { return "echo '" + text + "'"; }

// What a call comes to when the tool prints a text.
int result_with(const std::string& text, const std::function<int()>& call) {
  const ShellCommands commands([&](auto&) { return prints(text); });
  return call();
}

struct ToolCall {
  const char* command;
  std::function<int()> call;
};

const std::vector<ToolCall>& tool_calls() {
  static const std::vector<ToolCall> all = {
      {"mkfs.jffs2 -x lzo --root=/mnt/root --output=./rootfs --pad --little-endian "
       "--eraseblock=0x20000 -n 2>&1",
       [] { return tq_mkfs_jffs2("/mnt/root", "./rootfs"); }},
      {"flash_erase /dev/mtd2 0x0 1 2>&1", [] { return tq_erase_flash("/dev/mtd2", 0, kBlock); }},
      {"flash_eraseall /dev/mtd3 2>&1", [] { return tq_erase_flash_all("/dev/mtd3"); }},
      {"nandwrite /dev/mtd3 ./uImage 2>&1",
       [] { return tq_nandwrite("./uImage", "/dev/mtd3", 0); }},
      {"nandwrite /dev/mtd2 -s 0x120000 ./info 2>&1",
       [] { return tq_nandwrite("./info", "/dev/mtd2", 0x120000); }},
      {"nanddump -b -o /dev/mtd3 -f ./uImage 2>&1",
       [] { return tq_nanddump("/dev/mtd3", "./uImage", 0, 0); }},
      {"nanddump -b -o /dev/mtd2 -s 0x120000 -f ./info 2>&1",
       [] { return tq_nanddump("/dev/mtd2", "./info", 0x120000, 0); }},
  };
  return all;
}

TEST(FlashTool, RunsItsCommand) {
  for (const ToolCall& tool : tool_calls()) {
    EXPECT_THAT(commands_of([&] { EXPECT_EQ(tool.call(), 0); }), ElementsAre(tool.command));
  }
}

TEST(FlashTool, FailsByWhatItPrints) {
  for (const ToolCall& tool : tool_calls()) {
    EXPECT_EQ(result_with("error 28 (No space left on device)", tool.call), ENOSPC) << tool.command;
    EXPECT_EQ(result_with("all is well\nerror 5 (Input/output error)\nNo space left on device",
                          tool.call),
              EIO)
        << tool.command;
  }
}

TEST(FlashTool, IsNotJudgedByItsExitStatus) {
  for (const ToolCall& tool : tool_calls()) {
    const ShellCommands commands([](auto&) { return "echo error; exit 255"; });
    EXPECT_EQ(tool.call(), 0) << tool.command;
  }
}

TEST(FlashTool, FailsWithoutAShell) {
  for (const ToolCall& tool : tool_calls()) {
    Hook popen("popen", [](const char*, const char*) -> FILE* {
      errno = EMFILE;
      return nullptr;
    });
    EXPECT_EQ(tool.call(), EMFILE) << tool.command;
  }
}

TEST(FlashTool, FailsWithoutMemory) {
  for (const ToolCall& tool : tool_calls()) {
    const ShellCommands commands;
    const FailAlloc fail(1);
    EXPECT_EQ(tool.call(), ENOMEM) << tool.command;
    EXPECT_THAT(commands.lines(), IsEmpty());
  }
}

TEST(FlashTool, NeedsItsArguments) {
  const LogCapture log(TQ_LOG_DEBUG);
  int number = kUnwritten;
  EXPECT_THAT(commands_of([&] {
                EXPECT_EQ(tq_mkfs_jffs2(nullptr, "f"), EINVAL);
                EXPECT_EQ(tq_mkfs_jffs2("d", nullptr), EINVAL);
                EXPECT_EQ(tq_erase_flash(nullptr, 0, kBlock), EINVAL);
                EXPECT_EQ(tq_erase_flash_all(nullptr), EINVAL);
                EXPECT_EQ(tq_nandwrite(nullptr, "d", 0), EINVAL);
                EXPECT_EQ(tq_nandwrite("f", nullptr, 0), EINVAL);
                EXPECT_EQ(tq_nanddump(nullptr, "f", 0, 0), EINVAL);
                EXPECT_EQ(tq_nanddump("d", nullptr, 0, 0), EINVAL);
                EXPECT_EQ(tq_nand_count_badblock(nullptr, &number), EINVAL);
                EXPECT_EQ(tq_nand_count_badblock("d", nullptr), EINVAL);
                EXPECT_EQ(tq_nand_get_writable_len(nullptr, 6, 0, &number), EINVAL);
                EXPECT_EQ(tq_nand_get_writable_len("f", 6, 0, nullptr), EINVAL);
              }),
              IsEmpty());
  EXPECT_EQ(number, kUnwritten);
  EXPECT_THAT(log.records(), IsEmpty());
}

// A command line has a buffer of 256 bytes.
TEST(FlashTool, TakesACommandLineOf255Characters) {
  int number = kUnwritten;
  const struct {
    std::string around;
    std::function<int(const char*)> call;
  } rows[] = {
      {"mkfs.jffs2 -x lzo --root= --output=o --pad --little-endian --eraseblock=0x20000 -n 2>&1",
       [](const char* name) { return tq_mkfs_jffs2(name, "o"); }},
      {"flash_erase  0x0 1 2>&1", [](const char* name) { return tq_erase_flash(name, 0, kBlock); }},
      {"flash_eraseall  2>&1", [](const char* name) { return tq_erase_flash_all(name); }},
      {"nandwrite d  2>&1", [](const char* name) { return tq_nandwrite(name, "d", 0); }},
      {"nandwrite d -s 0x10  2>&1", [](const char* name) { return tq_nandwrite(name, "d", 16); }},
      {"nanddump -b -o d -f  2>&1", [](const char* name) { return tq_nanddump("d", name, 0, 0); }},
      {"nanddump -b -o d -s 0x10 -f  2>&1",
       [](const char* name) { return tq_nanddump("d", name, 16, 0); }},
      {"nanddump -b -o  -l 131072 -f countbad 2>&1",
       [&](const char* name) { return tq_nand_count_badblock(name, &number); }},
  };
  for (const auto& row : rows) {
    const std::string longest(255 - row.around.size(), 'x');
    const auto commands = commands_of([&] { EXPECT_EQ(row.call(longest.c_str()), 0); });
    ASSERT_EQ(commands.size(), 1U) << row.around;
    EXPECT_EQ(commands.front().size(), 255U);

    const LogCapture log(TQ_LOG_WARNING);
    EXPECT_THAT(commands_of([&] { EXPECT_EQ(row.call((longest + 'x').c_str()), ENAMETOOLONG); }),
                IsEmpty());
    EXPECT_EQ(log.messages(TQ_LOG_WARNING).size(), 1U) << row.around;
  }
}

TEST(FlashTool, LogsWhatItDoes) {
  const LogCapture log(TQ_LOG_DEBUG);
  commands_of([] {
    tq_mkfs_jffs2("dir", "file");
    tq_erase_flash_all("dev");
    tq_nandwrite("file", "dev", 0x40000);
    tq_nanddump("dev", "file", 0x20, 0);
  });
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_mkfs_jffs2 dir->file ",
                          "debug: mkfs.jffs2 -x lzo --root=dir --output=file --pad "
                          "--little-endian --eraseblock=0x20000 -n 2>&1",
                          "debug: tq_mkfs_jffs2 result 0 ",  //
                          "debug: tq_erase_flash_all dev", "debug: tq_erase_flash_all result 0 ",
                          "debug: tq_nandwrite file->dev ", "debug: tq_nandwrite result 0 ",
                          "debug: tq_nanddump dev->file : st =0x20  len =0x0",
                          "debug: tq_nanddump result 0 "));
}

TEST(FlashTool, LogsItsFailure) {
  const LogCapture log(TQ_LOG_DEBUG);
  result_with("Input/output error", [] {
    tq_mkfs_jffs2("dir", "file");
    tq_erase_flash_all("dev");
    return tq_nandwrite("file", "dev", 0);
  });
  EXPECT_TRUE(log.contains(TQ_LOG_DEBUG, kUnit, "tq_mkfs_jffs2 result 5 "));
  EXPECT_TRUE(log.contains(TQ_LOG_DEBUG, kUnit, "tq_erase_flash_all result 5 "));
  EXPECT_TRUE(log.contains(TQ_LOG_DEBUG, kUnit, "tq_nandwrite result 5 "));
}

TEST(EraseFlash, ErasesWholeBlocksAlone) {
  EXPECT_THAT(
      commands_of(
          [] { EXPECT_EQ(tq_erase_flash("/dev/mtd2", 0x40000, 2 * kBlock + kBlock / 2), 0); }),
      ElementsAre("flash_erase /dev/mtd2 0x40000 1 2>&1", "flash_erase /dev/mtd2 0x60000 1 2>&1"));
}

TEST(EraseFlash, RunsNothingForLessThanABlock) {
  for (const int length : {kBlock - 1, 1, 0, -1, -kBlock, INT_MIN}) {
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_THAT(commands_of([&] { EXPECT_EQ(tq_erase_flash("d", 0, length), -1); }), IsEmpty());
    EXPECT_THAT(unit_messages(log, kUnit),
                testing::Contains("debug: tq_erase_flash total result -1 "));
  }
}

// Erases four blocks, of which those given as 'x' fail.
int erase_with(const std::string& failures) {
  size_t at = 0;
  const ShellCommands commands([&](auto&) {
    return failures[at++] == 'x' ? prints("No space left on device") : std::string("true");
  });
  const int result = tq_erase_flash("d", 0, static_cast<int>(failures.size()) * kBlock);
  EXPECT_EQ(commands.lines().size(), failures.size());
  return result;
}

TEST(EraseFlash, SucceedsAsSoonAsOneBlockDid) {
  EXPECT_EQ(erase_with(".x"), 0);
  EXPECT_EQ(erase_with("x."), 0);
  EXPECT_EQ(erase_with("xx.x"), 0);
  EXPECT_EQ(erase_with("...."), 0);
}

TEST(EraseFlash, FailsWithTheLastBlockWhenAllFail) {
  EXPECT_EQ(erase_with("xxxx"), ENOSPC);
  int run = 0;
  const ShellCommands commands([&](auto&) {
    return run++ == 0 ? prints("Input/output error") : prints("Invalid argument");
  });
  EXPECT_EQ(tq_erase_flash("d", 0, 2 * kBlock), EINVAL);
}

TEST(EraseFlash, LogsTheTotalBeforeEachBlock) {
  const LogCapture log(TQ_LOG_DEBUG);
  erase_with("x.x");
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_erase_flash d start 0x0 len 0x60000",
                          "debug: tq_erase_flash parial result -1 ",
                          "debug: tq_erase_flash parial result 28 ",
                          "debug: tq_erase_flash parial result 0 ",
                          "debug: tq_erase_flash total result 0 "));
}

// The room of a command line decides before the first block, whose offset is the shortest.
TEST(EraseFlash, RunsNothingWhenALaterBlockDoesNotFit) {
  const std::string device(255 - std::string("flash_erase  0x0 1 2>&1").size(), 'x');
  EXPECT_THAT(
      commands_of([&] { EXPECT_EQ(tq_erase_flash(device.c_str(), 0, 2 * kBlock), ENAMETOOLONG); }),
      IsEmpty());
}

TEST(NandDump, IsCutToItsLengthWhateverTheDumpDid) {
  const WorkDirectory directory;
  const LogCapture log(TQ_LOG_DEBUG);
  const ShellCommands commands(
      [](auto&) { return "head -c 300000 /dev/zero >f; echo Input/output error"; });
  EXPECT_EQ(tq_nanddump("/dev/mtd2", "f", 0, 0x1a000), 0);
  EXPECT_EQ(fs::file_size(directory / "f"), 0x1a000U);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_nanddump /dev/mtd2->f : st =0x0  len =0x1a000",
                          "debug: tq_nanddump result 5 ", "debug: shurink file size to 0x1a000"));
}

TEST(NandDump, IsFilledUpWhenItIsShort) {
  const WorkDirectory directory;
  const ShellCommands commands([](auto&) { return "printf abc >f"; });
  EXPECT_EQ(tq_nanddump("/dev/mtd2", "f", 0, 5), 0);
  EXPECT_EQ(read_file(directory / "f"), std::string("abc\0\0", 5));
}

TEST(NandDump, FailsWhenItCannotBeCut) {
  const WorkDirectory directory;
  const ShellCommands commands;
  EXPECT_EQ(tq_nanddump("/dev/mtd2", "f", 0, 5), -1);
}

TEST(NandDump, WithoutALengthIsTheDumpAlone) {
  const WorkDirectory directory;
  const ShellCommands commands([](auto&) { return "printf abc >f; echo Input/output error"; });
  EXPECT_EQ(tq_nanddump("/dev/mtd2", "f", 0, 0), EIO);
  EXPECT_EQ(read_file(directory / "f"), "abc");
}

// Nothing is cut when nothing ran.
TEST(NandDump, LeavesAFileWhoseNameIsTooLongAlone) {
  const WorkDirectory directory;
  const std::string directories = std::string(200, 'd') + "/" + std::string(30, 'e');
  fs::create_directories(directory / directories);
  write_file(directory / (directories + "/f"), "abc");
  EXPECT_EQ(tq_nanddump("/dev/mtd2", (directories + "/f").c_str(), 0, 1), ENAMETOOLONG);
  EXPECT_EQ(read_file(directory / (directories + "/f")), "abc");
}

}  // namespace
}  // namespace tarvio_test
