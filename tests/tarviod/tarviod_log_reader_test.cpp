// The process that reads the log for tarviod.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <set>
#include <string>
#include <thread>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/system_log.h"
#include "support/programs/watched_log.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using std::string_literals::operator""s;

class LogReader : public WatchedLog {};

TEST_F(LogReader, IsThereBeforeRequestsAreAnswered) {
  start();
  EXPECT_NE(reader_of(manager()), -1);
}

TEST_F(LogReader, IsNotThereWithoutAHook) {
  write_file(kConfigFile, "log_period: 1\n");
  start();
  EXPECT_EQ(reader_of(manager()), -1);
}

TEST_F(LogReader, IsNotThereWhenThePeriodIs0) {
  write_file(kConfigFile, "log_period: 0\nhook.clock: clock\n");
  start();
  EXPECT_EQ(reader_of(manager()), -1);
}

TEST_F(LogReader, LooksAtTheUsualLogEachFiveSecondsWhereNothingElseIsSaid) {
  write_file(kConfigFile, "hook.web: webapp\n");
  start();
  EXPECT_EQ(read_file("/proc/" + std::to_string(reader_of(manager())) + "/cmdline"),
            "tarviod-log-reader\0002\0/var/log/messages\0005\0web\0webapp\0"s);
}

// Else each read would make the log grow, and so be followed by another one.
TEST_F(LogReader, LogsNoDebugMessages) {
  const SystemLog log;
  std::string text;
  std::atomic<bool> is_done = false;
  // It takes few messages at a time, and whoever logs waits for that.
  std::thread taker([&] {
    while (!is_done) {
      text += log.text();
      ::usleep(1000);
    }
  });
  start({"--log-level", "0"});
  append_to_log(log_line("info", "fine"));
  EXPECT_TRUE(becomes("0\nfine\n"));
  is_done = true;
  taker.join();
  text += log.text();
  EXPECT_NE(text.find("Adding status clock 0 fine -  status/"), std::string::npos);
  EXPECT_EQ(text.find("log/tq_syslog_binding"), std::string::npos);
}

TEST_F(LogReader, IsReplacedWhenItDies) {
  start();
  append_to_log(log_line("info", "1"));
  EXPECT_TRUE(becomes("0\n1\n"));
  const pid_t first = reader_of(manager());
  ::kill(first, SIGKILL);
  EXPECT_TRUE(ends(first));
  append_to_log(log_line("info", "2"));
  EXPECT_TRUE(becomes("0\n2\n"));
  EXPECT_NE(reader_of(manager()), first);
  EXPECT_EQ(counted(), 2);
  EXPECT_EQ(manager().errors(), "tarviod: the log reader died: starting another one\n");
}

TEST_F(LogReader, MayDieAtAnyTimeWithoutALineBeingLostOrCountedTwice) {
  start();
  std::string lines;
  for (int line = 0; line < 300; ++line) lines += log_line("info", std::to_string(line));
  pid_t reader = -1;
  for (int round = 0; round < 3; ++round) {
    const pid_t before = reader;
    EXPECT_TRUE(eventually([&] {
      reader = reader_of(manager());
      return reader != -1 && reader != before;
    }));
    append_to_log(lines);
    ::usleep(static_cast<useconds_t>(5000 + round * 700));
    ::kill(reader, SIGKILL);
    EXPECT_TRUE(ends(reader));
  }
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 900);
}

TEST_F(LogReader, LeavesSignalsThatAreMeantForAllToTheManager) {
  start();
  const pid_t reader = reader_of(manager());
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::kill(reader, signal);
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(reader_of(manager()), reader);
}

class EndOfManager : public LogReader, public testing::WithParamInterface<int> {};

TEST_P(EndOfManager, EndsItToo) {
  start();
  const pid_t reader = reader_of(manager());
  manager().send(GetParam());
  manager().end();
  EXPECT_TRUE(ends(reader));
  EXPECT_EQ(manager().errors(), "");
}

INSTANTIATE_TEST_SUITE_P(LogReader, EndOfManager, testing::Values(SIGTERM, SIGKILL));

TEST_F(LogReader, DoesNotReadALogThatStaysAsItIs) {
  append_to_log(log_line("info", "old"));
  start();
  const pid_t reader = reader_of(manager());
  ASSERT_TRUE(catches_up());
  const size_t before = descriptors_of(reader);
  ::usleep(200'000);  // forty looks
  EXPECT_EQ(reader_of(manager()), reader);
  EXPECT_EQ(descriptors_of(reader), before);
}

// What happens to the log while it is read, as commands of a shell, and how many lines count: of
// the first two, which are known, and of those that the commands write.
struct Meanwhile {
  const char* name;
  const char* commands;
  int counted;
};
std::ostream& operator<<(std::ostream& stream, const Meanwhile& meanwhile) {
  return stream << meanwhile.name;
}

class LogReaderMeanwhile : public LogReader, public testing::WithParamInterface<Meanwhile> {};

// Lets the manager run /run/cat in place of cat.
void use_other_cat() {
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", ("/run:" + path).c_str(), 1);
}

TEST_P(LogReaderMeanwhile, CountsNoLineTwice) {
  write_program("/run/cat", std::string("#!/bin/sh\n"
                                        "new='Jan  1 00:00:00 board user.info clock: new'\n"
                                        "rm /run/go 2>/dev/null || exec /bin/cat \"$1\"\n") +
                                GetParam().commands + "\n: >/run/done\n");
  start({}, use_other_cat);
  append_to_log(log_line("info", "1") + log_line("info", "2"));
  EXPECT_TRUE(becomes("0\n2\n"));
  write_file("/run/go", "");
  append_to_log(log_line("info", "3", "radio"));
  EXPECT_TRUE(eventually([] { return ::access("/run/done", F_OK) == 0; }));
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), GetParam().counted);
  EXPECT_EQ(manager().errors(), "");
}

INSTANTIATE_TEST_SUITE_P(
    LogReader, LogReaderMeanwhile,
    testing::Values(Meanwhile{"RenamedBefore", "mv $1 $1.0; echo \"$new\" >$1; cat $1", 3},
                    Meanwhile{"RenamedBehind", "cat $1; mv $1 $1.0; echo \"$new\" >$1", 3},
                    Meanwhile{"RenamedAndEmpty", "mv $1 $1.0; : >$1; cat $1", 2},
                    Meanwhile{"CutBefore", "echo \"$new\" >$1; cat $1", 3},
                    Meanwhile{"CutBehind", "cat $1; echo \"$new\" >$1", 3},
                    Meanwhile{"CutInTheMiddle", "head -n 1 $1; echo \"$new\" >$1", 3},
                    Meanwhile{"Grown", "echo \"$new\" >>$1; cat $1; echo \"$new\" >>$1", 4}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(LogReader, IsWaitedForFiveSecondsAtTheStart) {
  write_program("/run/cat", "#!/bin/sh\nwhile [ ! -e /run/go ]; do sleep 0.01; done\n");
  start({}, use_other_cat);
  EXPECT_EQ(manager().errors(),
            "tarviod: /var/log/messages: takes long to read: lines of now may count as old ones\n");
  write_file("/run/go", "");
}

TEST_F(LogReader, TriesAgainWhenAReadGivesNothing) {
  write_program("/run/cat", "#!/bin/sh\n[ -e /run/go ] || exec /bin/cat \"$1\"\n");
  start({}, use_other_cat);
  write_file("/run/go", "");
  append_to_log(log_line("warning", "x"));
  const std::string complaint = "tarviod: /var/log/messages: cat gives nothing of it\n";
  EXPECT_TRUE(eventually([&] { return manager().errors() == complaint; }));
  fs::remove("/run/go");
  EXPECT_TRUE(becomes("1\nx\n"));
  EXPECT_EQ(manager().errors(), complaint);
  EXPECT_EQ(counted(), 1);
}

// The standard streams, two for signals, the socket and the reader's reports.
constexpr size_t kDescriptorsOfManager = 3 + 2 + 1 + 1;

// Each look at the growing log is a read, which costs descriptors for good.
TEST_F(LogReader, IsReplacedAfterItsReadsAndNobodyHoldsMoreThanBefore) {
  start();
  ASSERT_TRUE(catches_up());
  std::set<pid_t> readers;
  for (int line = 0; line < 3 * kReadsOfAReader; ++line) {
    ASSERT_TRUE(catches_up());
    const pid_t reader = reader_of(manager());
    if (reader == -1) continue;
    readers.insert(reader);
    // Not one of the manager's, which each start of an application makes more.
    EXPECT_LE(descriptors_of(reader), 4 + 2 * kReadsOfAReader + 2);
  }
  EXPECT_GE(readers.size(), 3U);
  // The connection of the last question may still be there.
  EXPECT_TRUE(eventually([&] { return descriptors_of(manager().pid()) == kDescriptorsOfManager; }));
  EXPECT_EQ(counted(), 0);
  EXPECT_EQ(manager().errors(), "");
}

TEST_F(LogReader, InheritsNoDescriptorOfTheManager) {
  install_application("clock");
  start();
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "stop_app\nclock\n"), "0\n\n");
  const pid_t first = reader_of(manager());
  append_to_log("read me\n");
  manager().send(SIGHUP);
  next_reader(manager(), first);
}

}  // namespace
}  // namespace tarvio_test
