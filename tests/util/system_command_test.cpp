#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "support/children.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/string_list.h"
#include "support/unit_messages.h"
#include "tarvio/list.h"
#include "tarvio/log.h"
#include "tarvio/process.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SystemCommand : public testing::Test {
 protected:
  int run(const std::string& command) { return tq_system_command(command.c_str(), lines_.get()); }

  StringList lines_;
};

TEST_F(SystemCommand, CollectsLinesWithTheirLineEnds) {
  EXPECT_EQ(run("echo one; echo; echo two"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("one\n", "\n", "two\n"));
}

TEST_F(SystemCommand, AppendsToTheList) {
  lines_.add("before");
  EXPECT_EQ(run("echo one"), 0);
  EXPECT_EQ(run("echo two"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("before", "one\n", "two\n"));
}

TEST_F(SystemCommand, TakesALastLineWithoutALineEnd) {
  EXPECT_EQ(run("printf 'one\\ntwo'"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("one\n", "two"));
}

TEST_F(SystemCommand, ThatPrintsNothingAddsNothing) {
  EXPECT_EQ(run("true"), 0);
  EXPECT_THAT(lines_.texts(), IsEmpty());
}

TEST_F(SystemCommand, CutsALongLineIntoPiecesOf255Bytes) {
  EXPECT_EQ(run("head -c 600 /dev/zero | tr '\\0' x; echo"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre(std::string(255, 'x'), std::string(255, 'x'),
                                          std::string(90, 'x') + "\n"));
}

TEST_F(SystemCommand, KeepsTheLineEndOf254BytesAndParts255FromTheirs) {
  EXPECT_EQ(run("head -c 254 /dev/zero | tr '\\0' x; echo"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre(std::string(254, 'x') + "\n"));
  EXPECT_EQ(run("head -c 255 /dev/zero | tr '\\0' y; echo"), 0);
  EXPECT_THAT(lines_.texts(),
              ElementsAre(std::string(254, 'x') + "\n", std::string(255, 'y'), "\n"));
}

TEST_F(SystemCommand, KeepsALineUpToItsNulByte) {
  EXPECT_EQ(run("printf 'a\\0b\\nc\\n'"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("a", "c\n"));
}

TEST_F(SystemCommand, TakesTensOfThousandsOfLines) {
  EXPECT_EQ(run("seq 50000"), 0);
  const std::vector<std::string> lines = lines_.texts();
  ASSERT_THAT(lines, SizeIs(50000U));
  EXPECT_EQ(lines.back(), "50000\n");
}

TEST_F(SystemCommand, IsReadByTheShell) {
  EXPECT_EQ(run("echo \"a  b\" | tr a c && echo $((1 + 2))"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("c  b\n", "3\n"));
}

TEST_F(SystemCommand, LeavesStandardErrorToTheCaller) {
  const TempDir directory;
  {
    const Redirect err(STDERR_FILENO, directory / "err");
    EXPECT_EQ(run("echo out; echo err >&2"), 0);
  }
  EXPECT_THAT(lines_.texts(), ElementsAre("out\n"));
  EXPECT_EQ(read_file(directory / "err"), "err\n");
}

TEST_F(SystemCommand, IsNotJudgedByItsExitStatus) {
  EXPECT_EQ(run("echo one; exit 3"), 0);
  EXPECT_EQ(run("kill -KILL $$"), 0);
  EXPECT_EQ(run("no-such-program 2>/dev/null"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("one\n"));
}

TEST_F(SystemCommand, LogsTheCommand) {
  const LogCapture log(TQ_LOG_DEBUG);
  run("echo '100%s'");
  EXPECT_THAT(unit_messages(log, "util/tq_unix_process"),
              ElementsAre("debug: system execute command - echo '100%s'"));
}

TEST_F(SystemCommand, IsLoggedBeforeItRuns) {
  const LogCapture log(TQ_LOG_DEBUG);
  size_t logged = 0;
  const Hook popen("popen", [&](const char* command, const char* mode) {
    logged = log.records().size();
    return ::popen(command, mode);
  });
  run("true");
  EXPECT_EQ(logged, 1U);
}

TEST_F(SystemCommand, WithoutAShellReturnsTheErrorAndAddsNothing) {
  const Hook popen("popen", [](const char*, const char*) -> FILE* {
    errno = EMFILE;
    return nullptr;
  });
  EXPECT_EQ(run("echo one"), EMFILE);
  EXPECT_THAT(lines_.texts(), IsEmpty());
}

TEST_F(SystemCommand, WithoutMemoryReturns12AndKeepsTheLinesSoFar) {
  // Each line takes a copy and a node.
  const size_t lines_so_far[] = {0, 0, 1, 1};
  int n = 1;
  for (const size_t lines : lines_so_far) {
    StringList list;
    const FailAlloc fail(n++);
    EXPECT_EQ(tq_system_command("echo one; echo two", list.get()), ENOMEM);
    EXPECT_THAT(list.texts(), SizeIs(lines));
  }
  const FailAlloc fail(n);
  EXPECT_EQ(run("echo one; echo two"), 0);
  EXPECT_FALSE(fail.happened());
}

TEST_F(SystemCommand, NeedsACommandAndAList) {
  EXPECT_EQ(tq_system_command(nullptr, lines_.get()), EINVAL);
  EXPECT_EQ(tq_system_command("echo one", nullptr), EINVAL);
  EXPECT_THAT(lines_.texts(), IsEmpty());
}

TEST_F(SystemCommand, WorksWhileSigchldIsIgnored) {
  ::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(run("echo one"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("one\n"));
}

TEST_F(SystemCommand, LeavesNoDescriptorAndNoChildBehind) {
  const Descriptors before = open_descriptors();
  run("echo one");
  EXPECT_THAT(opened_since(before), IsEmpty());
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

// A handler without SA_RESTART makes the read fail that waits for the next line.
TEST_F(SystemCommand, IsReadToItsEndAlthoughASignalArrives) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &action, nullptr);
  EXPECT_EQ(run("printf par; sleep 0.1; kill -USR1 $PPID; sleep 0.1; echo tial; echo last"), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("partial\n", "last\n"));
}

}  // namespace
}  // namespace tarvio_test
