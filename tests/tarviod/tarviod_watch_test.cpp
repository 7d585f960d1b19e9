// How tarviod watches the log: which lines count, and what they do.
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/watched_log.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

TEST_F(WatchedLog, LetsALineChangeAStatus) {
  start();
  append_to_log(log_line("err", "no battery"));
  EXPECT_TRUE(becomes("2\nno battery\n"));
  EXPECT_EQ(counted(), 1);
}

struct Level {
  const char* level;
  const char* state;
};

TEST_F(WatchedLog, TakesTheStateFromTheLevel) {
  start();
  for (const auto& [level, state] : {Level{"debug", "0"}, Level{"warning", "1"}, Level{"info", "0"},
                                     Level{"warn", "1"}, Level{"panic", "0"}, Level{"crit", "2"}}) {
    append_to_log(log_line(level, level));
    EXPECT_TRUE(becomes(std::string(state) + "\n" + level + "\n"));
  }
}

TEST_F(WatchedLog, LeavesAnErrorUntilTheNextStart) {
  install_application("clock");
  start();
  append_to_log(log_line("err", "no battery"));
  EXPECT_TRUE(becomes("2\nno battery\n"));
  append_to_log(log_line("info", "fine"));
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "2\nno battery\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
  EXPECT_EQ(status_of("clock"), "0\nstarted app\n");
  append_to_log(log_line("warning", "low battery"));
  EXPECT_TRUE(becomes("1\nlow battery\n"));
}

TEST_F(WatchedLog, StartsAtThePresentEnd) {
  append_to_log(log_line("err", "of yesterday"));
  start();
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "");
  append_to_log(log_line("warning", "of today"));
  EXPECT_TRUE(becomes("1\nof today\n"));
  EXPECT_EQ(counted(), 1);
}

TEST_F(WatchedLog, CountsEveryLineOnceEvenWhereLinesAreEqual) {
  start();
  for (int line = 0; line < 20; ++line) {
    append_to_log(log_line("info", "the same"));
    if (line % 3 == 0) {
      ASSERT_TRUE(catches_up());
      EXPECT_EQ(counted(), line + 1);
    }
  }
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 20);
}

TEST_F(WatchedLog, LooksForHooksInTheIdentAlone) {
  start();
  append_to_log(log_line("err", "clock: clock", "radio"));
  append_to_log("Jan  1 00:00:00 clock user.err radio: x\n");
  append_to_log("clock\n");
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 0);
  append_to_log(log_line("warning", "x", "myclock[7]"));
  EXPECT_TRUE(becomes("1\nx\n"));
}

TEST_F(WatchedLog, LetsTheLastHookThatMatchesWin) {
  write_file(kConfigFile,
             "log_period: 1\nhook.web: server\nhook.webapp: application\nhook.app: last\n"
             "hook.mark: mark\n");
  start();
  append_to_log(log_line("warning", "x", "webapp"));
  EXPECT_TRUE(becomes("1\nx\n", "last"));
  append_to_log(log_line("warning", "y", "webserver"));
  EXPECT_TRUE(becomes("1\ny\n", "server"));
  EXPECT_EQ(status_of("application"), "");
}

TEST_F(WatchedLog, TrimsTheDetailAndCutsItTo200Bytes) {
  start();
  append_to_log(log_line("info", " \t two  words \t "));
  EXPECT_TRUE(becomes("0\ntwo  words\n"));
  const std::string text(199, 'x');
  append_to_log(log_line("info", "  " + text + "yz"));
  EXPECT_TRUE(becomes("0\n" + text + "y\n"));
  append_to_log(log_line("info", ""));
  EXPECT_TRUE(becomes("0\n\n"));
}

TEST_F(WatchedLog, TakesTheFirst511BytesOfALine) {
  start();
  const std::string begin =
      "Jan  1 00:00:00 board user.warning clock" + std::string(400, 'x') + ":";
  const std::string message(600 - begin.size(), 'y');
  append_to_log(begin + message + "\n");
  EXPECT_TRUE(becomes("1\n" + message.substr(0, 511 - begin.size()) + "\n"));
}

// They would end lines of a reply, or reach a terminal.
TEST_F(WatchedLog, ReplacesControlBytesByBlanks) {
  start();
  append_to_log(log_line("err",
                         "a\rb\x1b[2Jc\x7f"
                         "d\xc3\xa9\r"));
  EXPECT_TRUE(becomes("2\na b [2Jc d\xc3\xa9\n"));
}

TEST_F(WatchedLog, CountsALineThatIsIncompleteAtTheStart) {
  const std::string line = log_line("warning", "all of it");
  append_to_log(log_line("err", "of yesterday") + line.substr(0, 45));
  start();
  append_to_log(line.substr(45));
  EXPECT_TRUE(becomes("1\nall of it\n"));
  EXPECT_EQ(counted(), 1);
}

TEST_F(WatchedLog, CountsALineThatIsWrittenInParts) {
  start();
  const std::string line = log_line("warning", "all of it");
  append_to_log(log_line("info", "before") + line.substr(0, 45));
  EXPECT_TRUE(becomes("0\nbefore\n"));
  append_to_log(line.substr(45, 8));
  append_to_log(line.substr(53));
  EXPECT_TRUE(becomes("1\nall of it\n"));
  EXPECT_EQ(counted(), 2);
}

TEST_F(WatchedLog, ContinuesWithTheNewFileAfterARotation) {
  start();
  append_to_log(log_line("info", "first"));
  EXPECT_TRUE(becomes("0\nfirst\n"));
  fs::rename(kLogFile, std::string(kLogFile) + ".0");
  append_to_log(log_line("info", "second"));
  EXPECT_TRUE(becomes("0\nsecond\n"));
  append_to_log(log_line("info", "third"));
  EXPECT_TRUE(becomes("0\nthird\n"));
  EXPECT_EQ(counted(), 3);
}

TEST_F(WatchedLog, CountsALineThatHadNoEndWhenItsLogWasRotated) {
  start();
  append_to_log(log_line("info", "first") + "Jan  1 00:00:00 board user.warning clock: begun");
  EXPECT_TRUE(becomes("0\nfirst\n"));
  fs::rename(kLogFile, std::string(kLogFile) + ".0");
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "1\nbegun\n");
  EXPECT_EQ(counted(), 2);
}

class CutLog : public WatchedLog, public testing::WithParamInterface<int> {};

// Shorter than before, as long, and longer.
TEST_P(CutLog, IsReadFromItsBegin) {
  start();
  append_to_log(log_line("info", "1") + log_line("info", "2") + log_line("info", "3"));
  EXPECT_TRUE(becomes("0\n3\n"));
  std::string lines;
  for (int line = 0; line < GetParam(); ++line) lines += log_line("info", "another");
  write_file(kLogFile, lines);
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "0\nanother\n");
  EXPECT_EQ(counted(), 3 + GetParam());
}

INSTANTIATE_TEST_SUITE_P(WatchedLog, CutLog, testing::Values(1, 2, 5, 50));

TEST_F(WatchedLog, RereadsALineWhoseBeginningWasReplaced) {
  start();
  const std::string first = log_line("info", "first");
  append_to_log(first + "Jan  1 00:00:00 board user.err clock: begun");
  EXPECT_TRUE(becomes("0\nfirst\n"));
  wait_for_look();
  write_file(kLogFile, first + log_line("warning", "longer than what was begun"));
  EXPECT_TRUE(becomes("1\nlonger than what was begun\n"));
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 2);
}

TEST_F(WatchedLog, CountsAllOfALogThatComesLater) {
  fs::remove(kLogFile);
  start();
  append_to_log(log_line("info", "1") + log_line("info", "2"));
  EXPECT_TRUE(becomes("0\n2\n"));
  EXPECT_EQ(counted(), 2);
  EXPECT_EQ(manager().errors(), "tarviod: /var/log/messages: No such file or directory\n");
}

TEST_F(WatchedLog, CountsNoOldLineOfALogWhosePathBecomesValid) {
  write_file("/var/log/directory", "not one yet");
  write_file(kConfigFile,
             "log_file: /var/log/directory/messages\nlog_period: 1\nhook.clock: clock\n");
  start();
  EXPECT_EQ(manager().errors(), "tarviod: /var/log/directory/messages: Not a directory\n");
  fs::create_directory("/var/log/other");
  write_file("/var/log/other/messages", log_line("err", "old"));
  fs::remove("/var/log/directory");
  fs::rename("/var/log/other", "/var/log/directory");
  wait_for_look("/var/log/directory/messages");
  write_file("/var/log/directory/messages", log_line("err", "old") + log_line("warning", "new"));
  EXPECT_TRUE(becomes("1\nnew\n"));
}

TEST_F(WatchedLog, ContinuesWhereItStoppedWhenTheLogIsBack) {
  start();
  append_to_log(log_line("err", "1"));
  EXPECT_TRUE(becomes("2\n1\n"));
  const std::string away = std::string(kLogFile) + ".away";
  fs::rename(kLogFile, away);
  EXPECT_TRUE(eventually([&] { return !manager().errors().empty(); }));
  fs::rename(away, kLogFile);
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 1);
  EXPECT_EQ(manager().errors(), "tarviod: /var/log/messages: No such file or directory\n");
}

struct Other {
  const char* name;
  void (*create)(const char* path);
};
std::ostream& operator<<(std::ostream& stream, const Other& other) { return stream << other.name; }

class LogThatIsNotRegular : public WatchedLog, public testing::WithParamInterface<Other> {};

// Opening a FIFO could block until somebody writes to it.
TEST_P(LogThatIsNotRegular, IsNotRead) {
  fs::remove(kLogFile);
  GetParam().create(kLogFile);
  start();
  EXPECT_EQ(manager().errors(), "tarviod: /var/log/messages: is not a regular file\n");
  fs::remove(kLogFile);
  write_file(kLogFile, "");
  wait_for_look();
  append_to_log(log_line("warning", "new"));
  EXPECT_TRUE(becomes("1\nnew\n"));
}

INSTANTIATE_TEST_SUITE_P(
    WatchedLog, LogThatIsNotRegular,
    testing::Values(Other{"Directory", [](const char* path) { fs::create_directory(path); }},
                    Other{"Fifo", [](const char* path) { ::mkfifo(path, 0600); }},
                    Other{"Socket", [](const char* path) { listen_on(path).close(); }},
                    Other{"Device",
                          [](const char* path) { fs::create_symlink("/dev/null", path); }}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(WatchedLog, ComplainsAgainAfterTheLogWasReadable) {
  start();
  for (const char* round : {"1", "2"}) {
    const size_t before = manager().errors().size();
    fs::remove(kLogFile);
    EXPECT_TRUE(eventually([&] { return manager().errors().size() > before; })) << round;
    ASSERT_TRUE(catches_up());
  }
}

// Root reads every file, so the manager runs without that capability.
TEST_F(WatchedLog, CountsNoOldLineOfALogThatBecomesReadable) {
  append_to_log(log_line("err", "old"));
  fs::permissions(kLogFile, fs::perms::none);
  start({}, [] {
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
  });
  EXPECT_EQ(manager().errors(), "tarviod: /var/log/messages: Permission denied\n");
  fs::permissions(kLogFile, fs::perms::owner_read | fs::perms::owner_write);
  wait_for_look();
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 0);
}

// Whatever a line holds further on is not a line.
TEST_F(WatchedLog, TreatsALineOfAMebibyteAsOneLine) {
  start();
  const std::string spoof = log_line("err", "not a line");
  std::string line = log_line("info", "begin");
  line.pop_back();
  while (line.size() < 1 << 20) {
    line.append(254 - line.size() % 254, 'x');
    line += spoof.substr(0, spoof.size() - 1);
  }
  append_to_log(line + "\n");
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "0\nbegin" + std::string(195, 'x') + "\n");
  EXPECT_EQ(counted(), 1);
}

TEST_F(WatchedLog, LosesNoLineAfterBinaryBytes) {
  start();
  std::string bytes;
  for (int byte = 0; byte < 2560; ++byte) bytes += static_cast<char>(byte * 7 % 256);
  append_to_log(log_line("info", "1") + bytes + "\n" + log_line("info", "2"));
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "0\n2\n");
  append_to_log(log_line("info", std::string("3\0cut", 5)) + std::string(1000, '\0') + "\n");
  append_to_log(log_line("info", "4"));
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "0\n4\n");
  EXPECT_EQ(counted(), 4);
}

TEST_F(WatchedLog, CountsAHundredThousandLinesAtOnce) {
  start();
  std::string lines;
  for (int line = 0; line < 100'000; ++line)
    lines += log_line("info", std::to_string(line), line % 100 == 0 ? "clock" : "radio");
  append_to_log(lines);
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "0\n99900\n");
  EXPECT_EQ(counted(), 1000);
}

TEST_F(WatchedLog, KeepsTheLogFromTheOutput) {
  start({"--log-level", "0"});
  append_to_log(log_line("info", "fine"));
  EXPECT_TRUE(becomes("0\nfine\n"));
  EXPECT_EQ(manager().output().find(" dup "), std::string::npos);
}

}  // namespace
}  // namespace tarvio_test
