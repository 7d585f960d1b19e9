// Backup and restore at a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "support/flash/flash_client.h"
#include "support/programs/stepping_clock.h"
#include "support/programs/terminal.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class FlashAtATerminal : public FlashClient {
 protected:
  // A restore that may ask there, and gets an answer.
  FlashRun restore_with(const std::string& answer) const {
    terminal_.type(answer);
    const int line = terminal_.line();
    return run({"restore", "image.tbx", "--quiet"}, [=] { ::dup2(line, STDIN_FILENO); });
  }

  const Terminal terminal_;
};

TEST_F(FlashAtATerminal, IsAskedFor) {
  ASSERT_EQ(back_up({"kernel"}).status, 0);
  wipe("/dev/mtd3");
  for (const char* no : {"\n", "n\n", "yes please\n", "nyes\n"}) {
    const FlashRun ran = restore_with(no);
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(ran.errors,
                StartsWith("NAME    DEVICE     SIZE\n"
                           "kernel  /dev/mtd3  1.9 MiB\n"
                           "These areas will be erased and rewritten. Continue? [y/N] "));
    EXPECT_THAT(ran.errors, HasSubstr("cancelled; nothing was written"));
  }
  EXPECT_TRUE(is_erased("/dev/mtd3"));
  for (const char* yes : {"y\n", "YES\n"}) EXPECT_EQ(restore_with(yes).status, 0) << yes;
  EXPECT_FALSE(is_erased("/dev/mtd3"));
}

TEST_F(FlashAtATerminal, IsNotWaitedForAfterASignal) {
  ASSERT_EQ(back_up({"kernel"}).status, 0);
  const int line = terminal_.line();
  const pid_t client = start({"restore", "image.tbx"}, [=] { ::dup2(line, STDIN_FILENO); });
  EXPECT_TRUE(eventually(
      [this] { return read_file(reports_ / "errors").find("[y/N]") != std::string::npos; }));
  ::kill(client, SIGINT);
  EXPECT_EQ(exit_status_of(client), -1);
  EXPECT_THAT(read_file(reports_ / "errors"), HasSubstr("interrupted: nothing was written"));
  expect_only({"image.tbx"});
}

TEST_F(FlashAtATerminal, ChangesALineInItsPlace) {
  const int line = terminal_.line();
  const FlashRun ran = run({"backup", "--to", "image.tbx", "bootloader"}, [=] {
    ::setenv("TERM", "linux", 1);
    ::dup2(line, STDOUT_FILENO);
  });
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_THAT(terminal_.shown(),
              MatchesRegex("\r\x1b.Kbootloader: reading.*\r\x1b.Kbootloader: packing.*"
                           "\r\x1b.Kbootloader: read and packed 256.0 KiB in [^\n]*\n"
                           "saved bootloader in image.tbx, 2.*\n"));
}

// Before the first area is erased, its file is unpacked.
TEST_F(FlashAtATerminal, ShowsThatAPackageIsUnpackedIfThatTakesLong) {
  ASSERT_EQ(back_up({"bootloader"}).status, 0);
  const auto shown = [this](Clock clock) {
    wipe("/dev/mtd1");
    // As a program, which loads the clock.
    const FlashRun ran = run({}, [prepare = at_terminal(terminal_, clock)] {
      prepare();
      ::execl(TARVIO_CLIENT, TARVIO_CLIENT, "restore", "image.tbx", "--yes", "--timeout", "0",
              nullptr);
    });
    EXPECT_EQ(ran.status, 0) << ran.errors;
    return terminal_.shown();
  };
  EXPECT_THAT(shown(Clock::kStandsStill), StartsWith("\r\x1b[Kbootloader: erasing"));
  EXPECT_THAT(shown(Clock::kStepsAnHour),
              MatchesRegex("(\r\x1b.Kimage.tbx: unpacking [0-9]+ %, [^\r\n]* of 256.0 KiB[^\r\n]*)+"
                           "\r\x1b.K\r\x1b.Kbootloader: erasing.*"));
}

TEST_F(FlashAtATerminal, NeverFillsALineThatIsRedrawn) {
  const int line = terminal_.line();
  terminal_.resize(45, 12);
  const FlashRun ran = run({"backup", "--to", "image.tbx", "bootsetting"}, [=] {
    ::setenv("TERM", "linux", 1);
    ::dup2(line, STDOUT_FILENO);
  });
  EXPECT_EQ(ran.status, 0) << ran.errors;
  const std::string shown = terminal_.shown();
  EXPECT_TRUE(std::regex_search(shown, std::regex("bootsetting: reading [0-9]+ %, .*\\.\\.\\.\r")));
  EXPECT_FALSE(std::regex_search(shown, std::regex("\x1b\\[K[^\r\n\x1b]{45,}\r"))) << shown;
}

}  // namespace
}  // namespace tarvio_test
