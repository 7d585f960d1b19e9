#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/children.h"
#include "support/files.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/no_sleep.h"
#include "tarvio/process.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr int kTries = 5;

TEST(IsProcessAlive, Says0OfEveryProcess) {
  EXPECT_EQ(tq_is_process_alive(::getpid()), 0);
  EXPECT_EQ(tq_is_process_alive(1), 0);
  EXPECT_EQ(tq_is_process_alive(0), 0);
  EXPECT_EQ(tq_is_process_alive(-1), 0);
  EXPECT_EQ(tq_is_process_alive(2147483647), 0);
}

class WaitProcessExit : public testing::TestWithParam<int> {};

TEST_P(WaitProcessExit, SleepsOneSecondOnceAndReturns0) {
  const NoSleep no_sleep;
  EXPECT_EQ(tq_wait_process_exit(::getpid(), GetParam()), 0);
  EXPECT_THAT(no_sleep.naps(), ElementsAre(1U));
}

INSTANTIATE_TEST_SUITE_P(Tries, WaitProcessExit, testing::Values(-1, 0, 1, 5));

class TerminateProcess : public testing::Test {
 protected:
  // Leads a group of its own. Ended by the sandbox when the library does not.
  int start_leader() const {
    write_program(directory_ / "leader", "#!/bin/sh\necho ready\nexec sleep 600\n");
    const std::string command = "setsid " + (directory_ / "leader").string();
    int pid = -1;
    int output = -1;
    EXPECT_EQ(tq_create_process(command.c_str(), TQ_PIPE_STDOUT, &pid, nullptr, &output, nullptr),
              0);
    char line[6] = {};
    EXPECT_EQ(::read(output, line, sizeof line), 6);
    ::close(output);
    return pid;
  }

  const TempDir directory_;
  const NoSleep no_sleep_;
};

TEST_F(TerminateProcess, SendsNoSignalWhenThereIsAStopCommand) {
  int signals = 0;
  const Hook killpg("killpg", [&](pid_t, int) {
    ++signals;
    return 0;
  });
  const fs::path mark = directory_ / "stopped";
  EXPECT_EQ(tq_terminate_process(("touch " + mark.string()).c_str(), ::getpid(), kTries), 0);
  EXPECT_EQ(signals, 0);
  EXPECT_THAT(no_sleep_.naps(), ElementsAre(1U));
  EXPECT_TRUE(eventually([&] { return fs::exists(mark); }));
}

TEST_F(TerminateProcess, SendsNoSignalWhenTheStopCommandIsEmpty) {
  int signals = 0;
  const Hook killpg("killpg", [&](pid_t, int) {
    ++signals;
    return 0;
  });
  EXPECT_EQ(tq_terminate_process("", ::getpid(), kTries), 0);
  EXPECT_EQ(signals, 0);
  EXPECT_THAT(no_sleep_.naps(), ElementsAre(1U));
}

TEST_F(TerminateProcess, SendsSigtermToTheGroupWhenThereIsNone) {
  std::vector<std::pair<pid_t, int>> signals;
  const Hook killpg("killpg", [&](pid_t group, int signal) {
    signals.emplace_back(group, signal);
    return 0;
  });
  EXPECT_EQ(tq_terminate_process(nullptr, 4711, kTries), 0);
  EXPECT_THAT(signals, ElementsAre(Pair(4711, SIGTERM)));
  EXPECT_THAT(no_sleep_.naps(), ElementsAre(1U));
}

TEST_F(TerminateProcess, ReachesAChildThatLeadsAGroup) {
  const int leader = start_leader();
  EXPECT_EQ(tq_terminate_process(nullptr, leader, kTries), 0);
  const int status = end_of(leader);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

TEST_F(TerminateProcess, DoesNotReachAChildThatLeadsNone) {
  int pid = -1;
  ASSERT_EQ(tq_create_process("sleep 600", 0, &pid, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(tq_terminate_process(nullptr, pid, kTries), 0);
  EXPECT_EQ(::waitpid(pid, nullptr, WNOHANG), 0);
  ::kill(pid, SIGKILL);
  end_of(pid);
}

TEST_F(TerminateProcess, SendsNoSignalWhenTheStopCommandCannotBeStarted) {
  const Hook pipe("pipe", [](int*) {
    errno = EMFILE;
    return -1;
  });
  int signals = 0;
  const Hook killpg("killpg", [&](pid_t, int) {
    ++signals;
    return 0;
  });
  EXPECT_EQ(tq_terminate_process("true", ::getpid(), kTries), 0);
  EXPECT_EQ(signals, 0);
}

}  // namespace
}  // namespace tarvio_test
