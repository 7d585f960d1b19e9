// Reading the new lines of the system log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/children.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/live_allocations.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "support/repairs.h"
#include "support/string_list.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/log_monitor.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kUnit[] = "log/tq_syslog_binding";

using Lines = std::vector<std::string>;

int exit_status_of_only_child() {
  int status = -1;
  EXPECT_GT(::wait(&status), 0);
  return WEXITSTATUS(status);
}

class SyslogRead : public testing::Test {
 protected:
  ~SyslogRead() override {
    std::free(tq_last_syslog);
    tq_last_syslog = nullptr;
  }

  void log_holds(std::string_view text) const { write_file(file_, text); }

  // The lines that are new after the given one.
  Lines read(const char* last) const {
    const StringList lines;
    EXPECT_EQ(tq_log_read(command_.c_str(), last, lines.get()), 0);
    return lines.texts();
  }

  const TempDir directory_;
  const std::filesystem::path file_ = directory_ / "messages";
  const std::string command_ = "cat " + file_.string();
  const StdoutCapture out_;
};

TEST_F(SyslogRead, GivesAllLinesWhereNoneIsKnown) {
  log_holds("a\nb\nc\n");
  EXPECT_THAT(read(nullptr), ElementsAre("a\n", "b\n", "c\n"));
  EXPECT_STREQ(tq_last_syslog, "c\n");
}

TEST_F(SyslogRead, GivesTheLinesAfterTheKnownOne) {
  log_holds("a\nb\nc\nd\n");
  EXPECT_THAT(read("b\n"), ElementsAre("c\n", "d\n"));
  EXPECT_STREQ(tq_last_syslog, "d\n");
}

TEST_F(SyslogRead, GivesTheLinesSinceTheReadBefore) {
  log_holds("a\nb\n");
  read(tq_last_syslog);
  log_holds("a\nb\nc\n");
  EXPECT_THAT(read(tq_last_syslog), ElementsAre("c\n"));
  EXPECT_STREQ(tq_last_syslog, "c\n");
}

TEST_F(SyslogRead, GivesNothingWhenNothingIsNew) {
  log_holds("a\nb\n");
  read(tq_last_syslog);
  const char* before = tq_last_syslog;
  EXPECT_THAT(read(tq_last_syslog), IsEmpty());
  EXPECT_EQ(tq_last_syslog, before);
  EXPECT_STREQ(tq_last_syslog, "b\n");
}

TEST_F(SyslogRead, GivesNothingOfAnEmptyLog) {
  log_holds("");
  EXPECT_THAT(read("a\n"), IsEmpty());
  EXPECT_EQ(tq_last_syslog, nullptr);
}

TEST_F(SyslogRead, TakesTheLastOfEqualLinesForTheKnownOne) {
  log_holds("a\nb\na\nc\na\nd\n");
  EXPECT_THAT(read("a\n"), ElementsAre("d\n"));
}

TEST_F(SyslogRead, TakesEveryLineForNewWhenTheKnownOneIsGone) {
  log_holds("b\nc\n");
  EXPECT_THAT(read("a\n"), ElementsAre("b\n", "c\n"));
}

TEST_F(SyslogRead, ComparesTheLineEndToo) {
  log_holds("a\nb\n");
  EXPECT_THAT(read("a"), SizeIs(2));
  EXPECT_THAT(read("A\n"), SizeIs(2));
  EXPECT_THAT(read("a\r\n"), SizeIs(2));
  EXPECT_THAT(read(""), SizeIs(2));
  log_holds("a\nb");
  EXPECT_THAT(read("b"), IsEmpty());
}

TEST_F(SyslogRead, KeepsALineThatLacksItsEnd) {
  log_holds("a\nb");
  EXPECT_THAT(read(nullptr), ElementsAre("a\n", "b"));
  EXPECT_STREQ(tq_last_syslog, "b");
}

TEST_F(SyslogRead, KeepsEmptyLinesAndCarriageReturns) {
  log_holds("\n\na\r\nb\rc\n");
  EXPECT_THAT(read(nullptr), ElementsAre("\n", "\n", "a\r\n", "b\rc\n"));
}

TEST_F(SyslogRead, TakesLongLinesInPiecesOf254Bytes) {
  const std::string x(254, 'x');
  const std::string y(92, 'y');
  log_holds(x.substr(1) + "\n" + x + "\n" + x + x + y + "\na\n");
  EXPECT_THAT(read(nullptr), ElementsAre(x.substr(1) + "\n", x, "\n", x, x, y + "\n", "a\n"));
}

TEST_F(SyslogRead, LooksForTheKnownLineAmongPieces) {
  const std::string x(254, 'x');
  log_holds(x + "b\n");
  EXPECT_THAT(read(x.c_str()), ElementsAre("b\n"));
  EXPECT_THAT(read("b\n"), IsEmpty());
}

TEST_F(SyslogRead, RemembersTheLastPiece) {
  log_holds("a\n" + std::string(300, 'x') + "\n");
  read(nullptr);
  EXPECT_EQ(tq_last_syslog, std::string(46, 'x') + "\n");
}

TEST_F(SyslogRead, CutsLinesAtAZeroByte) {
  log_holds(std::string_view("a\0b\n\0c\nd\n", 9));
  EXPECT_THAT(read(nullptr), ElementsAre("a", "", "d\n"));
}

TEST_F(SyslogRead, KeepsAllOtherBytes) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte)
    if (byte != '\n') bytes += static_cast<char>(byte);
  log_holds(bytes + "\n");
  EXPECT_THAT(read(nullptr), ElementsAre(bytes, "\n"));
}

TEST_F(SyslogRead, AppendsToTheCallersList) {
  log_holds("a\nb\nc\n");
  StringList lines;
  lines.add("before");
  EXPECT_EQ(tq_log_read(command_.c_str(), "a\n", lines.get()), 0);
  lines.add("after");
  EXPECT_THAT(lines.texts(), ElementsAre("before", "b\n", "c\n", "after"));
  EXPECT_EQ(tq_list_size(lines.get()), 4);
}

TEST_F(SyslogRead, ReadsAHundredThousandLines) {
  std::string text;
  Lines lines;
  for (int number = 0; number < 100'000; ++number) {
    lines.push_back("line " + std::to_string(number) + "\n");
    text += lines.back();
  }
  log_holds(text);
  EXPECT_EQ(read(nullptr), lines);
  EXPECT_THAT(read("line 99997\n"), ElementsAre("line 99998\n", "line 99999\n"));
}

TEST_F(SyslogRead, LosesNothingToASlowCommand) {
  const std::filesystem::path script = directory_ / "slow";
  write_program(script, "#!/bin/sh\nprintf 'a b'\nsleep 0.2\nprintf ' c\\nd'\nsleep 0.2\necho e\n");
  const StringList lines;
  EXPECT_EQ(tq_log_read(script.c_str(), nullptr, lines.get()), 0);
  EXPECT_THAT(lines.texts(), ElementsAre("a b c\n", "de\n"));
}

TEST_F(SyslogRead, LosesNothingToAnInterruption) {
  log_holds("a\nb\n");
  bool interrupted = false;
  const Hook hook("read", [&](int fd, void* bytes, size_t size) -> ssize_t {
    if (!interrupted) {
      interrupted = true;
      errno = EINTR;
      return -1;
    }
    return ::read(fd, bytes, size);
  });
  EXPECT_THAT(read(nullptr), ElementsAre("a\n", "b\n"));
  EXPECT_TRUE(interrupted);
}

TEST_F(SyslogRead, PrintsEachLineAndEachMatch) {
  log_holds("a\nb\na\n" + std::string(254, 'x') + "y");
  read("a\n");
  EXPECT_EQ(out_.text(),
            " dup a\n this line is match!\n dup b\n dup a\n this line is match!\n dup " +
                std::string(254, 'x') + " dup y");
}

TEST_F(SyslogRead, PrintsNothingElse) {
  log_holds("%s%n\n");
  EXPECT_THAT(read(nullptr), ElementsAre("%s%n\n"));
  EXPECT_EQ(out_.text(), " dup %s%n\n");
}

TEST_F(SyslogRead, LogsWhatItFound) {
  log_holds("a\nb\nc\n");
  const LogCapture log(TQ_LOG_DEBUG);
  read(nullptr);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: Check syslog 3 lines, lastlog matched at line -1",
                          "debug: check log size 3"));
}

TEST_F(SyslogRead, LogsTheLineBeforeAndWhereItIs) {
  log_holds("a\nb\n");
  read(nullptr);
  log_holds("a\nb\nb\nc\n");
  const LogCapture log(TQ_LOG_DEBUG);
  read(tq_last_syslog);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: syslog lastlog b\n ",
                          "debug: Check syslog 4 lines, lastlog matched at line 2",
                          "debug: check log size 1"));
}

TEST_F(SyslogRead, LogsTheSizeOfTheWholeList) {
  log_holds("a\n");
  StringList lines;
  lines.add("before");
  const LogCapture log(TQ_LOG_DEBUG);
  tq_log_read(command_.c_str(), "a\n", lines.get());
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: Check syslog 1 lines, lastlog matched at line 0",
                          "debug: check log size 1"));
}

TEST_F(SyslogRead, GivesNothingWhenTheCommandCannotBeRun) {
  const StringList lines;
  EXPECT_EQ(tq_log_read("/nowhere/command", nullptr, lines.get()), 0);
  EXPECT_EQ(tq_log_read("", nullptr, lines.get()), 0);
  EXPECT_THAT(lines.texts(), IsEmpty());
}

TEST_F(SyslogRead, LetsNothingThatTheHostHasBufferedOutOfTheChild) {
  const StringList lines;
  std::fputs("of the host\n", stdout);
  EXPECT_EQ(tq_log_read("/nowhere/command", nullptr, lines.get()), 0);
  EXPECT_EQ(exit_status_of_only_child(), ENOENT);
  EXPECT_THAT(lines.texts(), IsEmpty());
  EXPECT_EQ(out_.text(), "of the host\n");
}

TEST_F(SyslogRead, LeavesTheEndedChildToItsHost) {
  log_holds("a\n");
  read(nullptr);
  EXPECT_EQ(exit_status_of_only_child(), 0);
}

TEST_F(SyslogRead, LeavesTwoDescriptorsOpen) {
  log_holds("a\n");
  const Descriptors before = open_descriptors();
  read(nullptr);
  EXPECT_THAT(opened_since(before), SizeIs(2));
  read(nullptr);
  EXPECT_THAT(opened_since(before), SizeIs(4));
}

TEST_F(SyslogRead, LeavesNoDescriptorOpenOnceProcessesAreRepaired) {
  const Repairs repairs(TQ_REPAIR_PROCESSES);
  log_holds("a\n");
  const Descriptors before = open_descriptors();
  EXPECT_THAT(read(nullptr), ElementsAre("a\n"));
  EXPECT_THAT(opened_since(before), IsEmpty());
}

TEST_F(SyslogRead, ReturnsTheErrorOfAPipe) {
  const StringList lines;
  const Hook hook("pipe", [](int*) {
    errno = EMFILE;
    return -1;
  });
  EXPECT_EQ(tq_log_read(command_.c_str(), nullptr, lines.get()), EMFILE);
  EXPECT_THAT(lines.texts(), IsEmpty());
}

TEST_F(SyslogRead, FindsNothingWhenThereCanBeNoChild) {
  log_holds("a\n");
  const Hook hook("fork", []() -> pid_t {
    errno = EAGAIN;
    return -1;
  });
  EXPECT_THAT(read(nullptr), IsEmpty());
}

TEST_F(SyslogRead, NeedsACommandAndAList) {
  const StringList lines;
  EXPECT_EQ(tq_log_read(nullptr, nullptr, lines.get()), EINVAL);
  EXPECT_EQ(tq_log_read("echo", nullptr, nullptr), EINVAL);
}

TEST_F(SyslogRead, ChangesNothingWhenMemoryRunsOut) {
  log_holds("a\nb\n");
  read(nullptr);
  log_holds("a\nb\nc\nd\n");
  StringList lines;
  lines.add("before");
  std::optional<FailAlloc> fail;
  const Hook in_this_process_alone("fork", [&] {
    const pid_t child = ::fork();
    if (child == 0) fail.reset();
    return child;
  });
  for (int n = 1;; ++n) {
    fail.emplace(n);
    const int code = tq_log_read(command_.c_str(), tq_last_syslog, lines.get());
    if (!fail->happened()) break;
    EXPECT_EQ(code, ENOMEM) << n;
    EXPECT_THAT(lines.texts(), ElementsAre("before"));
    EXPECT_STREQ(tq_last_syslog, "b\n");
  }
  fail.reset();
  EXPECT_THAT(lines.texts(), ElementsAre("before", "c\n", "d\n"));
  EXPECT_STREQ(tq_last_syslog, "d\n");
}

TEST_F(SyslogRead, FreesWhatIsOld) {
  log_holds("a\nb\nc\nd\n");
  read(nullptr);
  const StringList lines;
  const LiveAllocations live;
  EXPECT_EQ(tq_log_read(command_.c_str(), "b\n", lines.get()), 0);
  EXPECT_EQ(live.count(), 2 + 2);  // a node and a string for each line
}

}  // namespace
}  // namespace tarvio_test
