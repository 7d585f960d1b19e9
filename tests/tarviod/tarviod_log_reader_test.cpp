// The process that reads the log for tarviod.
#include <gtest/gtest.h>
#include <unistd.h>

#include <sys/inotify.h>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <ostream>
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

TEST_F(LogReader, RunsBeforeRequestsAreAnswered) {
  start();
  EXPECT_NE(reader_of(manager()), -1);
}

TEST_F(LogReader, DoesNotRunWithoutAHook) {
  write_file(kConfigFile, "log_period: 1\n");
  start();
  EXPECT_EQ(reader_of(manager()), -1);
}

TEST_F(LogReader, DoesNotRunWhenThePeriodIs0) {
  write_file(kConfigFile, "log_period: 0\nhook.clock: clock\n");
  start();
  EXPECT_EQ(reader_of(manager()), -1);
}

TEST_F(LogReader, LooksAtTheSystemLogEveryFiveSecondsByDefault) {
  write_file(kConfigFile, "hook.web: webapp\n");
  start();
  EXPECT_EQ(read_file("/proc/" + std::to_string(reader_of(manager())) + "/cmdline"),
            "tarviod-log-reader\0/var/log/messages\0auto\0005\0web\0webapp\0-\0"s);
}

// Otherwise each read would make the log grow and so cause the next one.
TEST_F(LogReader, LogsNoDebugMessages) {
  const SystemLog log;
  std::string text;
  std::atomic<bool> is_done = false;
  // The socket holds few messages at a time, and whoever logs waits for room.
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

TEST_F(LogReader, MayDieWhileALineIsWritten) {
  start();
  const std::string line = log_line("warning", "all of it");
  append_to_log(log_line("info", "before") + line.substr(0, 45));
  EXPECT_TRUE(becomes("0\nbefore\n"));
  wait_for_look();
  const pid_t first = reader_of(manager());
  ::kill(first, SIGKILL);
  EXPECT_TRUE(ends(first));
  append_to_log(line.substr(45));
  EXPECT_TRUE(becomes("1\nall of it\n"));
  EXPECT_EQ(counted(), 2);
}

TEST_F(LogReader, IgnoresTheSignalsThatEndOrReloadTheManager) {
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

TEST_F(LogReader, DoesNotReadAnUnchangedLog) {
  append_to_log(log_line("info", "old"));
  start();
  ASSERT_TRUE(catches_up());
  FileEvents events;
  for (int event = 0; event < 80; ++event) EXPECT_NE(events.next(), IN_ACCESS);  // forty looks
}

std::function<void()> with_staged_reads() {
  return with_module(std::string(TARVIOD_FAST_LOOKS) + ":" + TARVIOD_STAGED_READS);
}

// What happens to the log while some 40 KB of new lines are read: shell commands before and after
// each read, $at being its offset in the new lines. And how many lines count, of the two that are
// known and of those that the commands write.
struct Meanwhile {
  const char* name;
  const char* before;
  const char* after;
  int counted;
};
std::ostream& operator<<(std::ostream& stream, const Meanwhile& meanwhile) {
  return stream << meanwhile.name;
}

class LogReaderMeanwhile : public LogReader, public testing::WithParamInterface<Meanwhile> {};

// Commands that run at each read until one of them says "finish".
void write_stage(const char* program, size_t begin, const std::string& commands) {
  write_program(program, "#!/bin/sh\n[ -e /run/done ] && exit\nat=$(($1 - " +
                             std::to_string(begin) + "))\nlog=" + kLogFile +
                             "\nnew='Jan  1 00:00:00 board user.info clock: new'\n"
                             "finish() { : >/run/done; }\n" +
                             commands + "\n");
}

TEST_P(LogReaderMeanwhile, CountsNoLineTwice) {
  start({}, with_staged_reads());
  const std::string known = log_line("info", "1") + log_line("info", "2");
  append_to_log(known);
  EXPECT_TRUE(becomes("0\n2\n"));
  write_stage("/run/before-read", known.size(), GetParam().before);
  write_stage("/run/after-read", known.size(), GetParam().after);
  std::string lines;
  for (int line = 0; line < 1000; ++line) lines += log_line("info", "3", "radio");
  append_to_log(lines);
  EXPECT_TRUE(eventually([] { return ::access("/run/done", F_OK) == 0; }));
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), GetParam().counted);
  EXPECT_EQ(manager().errors(), "");
}

INSTANTIATE_TEST_SUITE_P(
    LogReader, LogReaderMeanwhile,
    testing::Values(
        Meanwhile{"RenamedBefore", "[ $at = 0 ] && mv $log $log.0 && echo $new >$log && finish", "",
                  3},
        Meanwhile{"RenamedInTheMiddle",
                  "[ $at = 16384 ] && mv $log $log.0 && echo $new >$log && finish", "", 3},
        Meanwhile{"RenamedAfter", "",
                  "[ $at = 32768 ] && mv $log $log.0 && echo $new >$log && finish", 3},
        Meanwhile{"RenamedAndEmpty", "[ $at = 0 ] && mv $log $log.0 && : >$log && finish", "", 2},
        Meanwhile{"TruncatedBefore", "[ $at = 0 ] && echo $new >$log && finish", "", 3},
        Meanwhile{"TruncatedInTheMiddle", "[ $at = 16384 ] && echo $new >$log && finish", "", 3},
        Meanwhile{"TruncatedAfter", "", "[ $at = 32768 ] && echo $new >$log && finish", 3},
        Meanwhile{"Grown", "[ $at = 0 ] && echo $new >>$log",
                  "[ $at = 32768 ] && echo $new >>$log && finish", 4}),
    [](const auto& each) { return std::string(each.param.name); });

// A log on a file system that hangs holds the reader alone.
TEST_F(LogReader, IsWaitedForFiveSecondsAtTheStart) {
  append_to_log(log_line("info", "old"));
  write_program("/run/before-read", "#!/bin/sh\nwhile [ ! -e /run/go ]; do sleep 0.01; done\n");
  start({}, with_staged_reads());
  EXPECT_EQ(manager().errors(),
            "tarviod: /var/log/messages: is slow to read; recent lines may be skipped\n");
  EXPECT_EQ(status_of("clock"), "");
  write_file("/run/go", "");
}

TEST_F(LogReader, TriesAgainWhenAReadFails) {
  start({}, with_staged_reads());
  append_to_log(log_line("info", "1"));
  EXPECT_TRUE(becomes("0\n1\n"));
  write_file("/run/unreadable", "");
  append_to_log(log_line("warning", "2"));
  const std::string complaint = "tarviod: /var/log/messages: Input/output error\n";
  EXPECT_TRUE(eventually([&] { return manager().errors() == complaint; }));
  fs::remove("/run/unreadable");
  EXPECT_TRUE(becomes("1\n2\n"));
  EXPECT_EQ(manager().errors(), complaint);
  EXPECT_EQ(counted(), 2);
}

// A manager in the background has let go of its terminal, but started the reader before.
TEST_F(LogReader, HoldsNoTerminal) {
  start();
  const std::string process = "/proc/" + std::to_string(reader_of(manager()));
  EXPECT_EQ(fs::read_symlink(process + "/fd/2"), "/dev/null");
}

TEST_F(LogReader, RunsNoCommand) {
  start({}, [] { ::setenv("PATH", "/nowhere", 1); });
  append_to_log(log_line("warning", "x"));
  EXPECT_TRUE(becomes("1\nx\n"));
  EXPECT_TRUE(children_of(reader_of(manager())).empty());
}

// The standard streams, the lock, two each for the keeper, signals, jobs and their results, the
// socket and the reader's reports.
constexpr long kDescriptorsOfManager = 3 + 1 + 4 * 2 + 1 + 1;
constexpr long kDescriptorsOfReader = 3;

TEST_F(LogReader, HoldsNoMoreDescriptorsAfterAThousandReads) {
  start();
  const pid_t reader = reader_of(manager());
  FileEvents events;
  for (int line = 0; line < 1000; ++line) {
    append_to_log(log_line("info", "x", "radio"));
    events.wait_for(IN_ACCESS);
    ASSERT_LE(count_descriptors(reader), kDescriptorsOfReader + 1);  // the log, while it is read
    events.wait_for(IN_CLOSE_NOWRITE);
  }
  EXPECT_TRUE(eventually([&] { return count_descriptors(reader) == kDescriptorsOfReader; }));
  // The last connection may still be open.
  EXPECT_TRUE(
      eventually([&] { return count_descriptors(manager().pid()) == kDescriptorsOfManager; }));
  EXPECT_EQ(reader_of(manager()), reader);
  EXPECT_EQ(counted(), 0);
  EXPECT_EQ(manager().errors(), "");
}

// In KiB.
long peak_memory_of(pid_t process) {
  const std::string status = read_file("/proc/" + std::to_string(process) + "/status");
  return std::stol(status.substr(status.find("VmHWM:") + 6));
}

TEST_F(LogReader, NeedsNoMoreMemoryForALineOf100Mebibytes) {
  start();
  ASSERT_TRUE(catches_up());
  const pid_t reader = reader_of(manager());
  const long before = peak_memory_of(reader);
  append_to_log("Jan  1 00:00:00 board user.warning clock: long");
  fs::resize_file(kLogFile, fs::file_size(kLogFile) + (100U << 20));  // zero bytes
  wait_for_look();
  append_to_log("\n");
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(status_of("clock"), "1\nlong\n");
  EXPECT_EQ(reader_of(manager()), reader);
  EXPECT_LE(peak_memory_of(reader), before + 4096);  // sanitizers take some
}

TEST_F(LogReader, InheritsNoDescriptorOfTheManager) {
  install_application("clock");
  start();
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "stop_app\nclock\n"), "0\n\n");
  const pid_t first = reader_of(manager());
  manager().send(SIGHUP);
  const pid_t second = next_reader(manager(), first);
  EXPECT_TRUE(eventually([&] { return count_descriptors(second) == kDescriptorsOfReader; }));
}

}  // namespace
}  // namespace tarvio_test
