// Processes that cannot be taken for later ones with the same number.
#include "runtime/process_id.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tarvio_test {
namespace {

using runtime::ProcessFacts;

TEST(ProcessId, IsThatOfARunningProcess) {
  ProcessFacts facts;
  ASSERT_TRUE(runtime::read_process(getpid(), facts));
  EXPECT_EQ(facts.id.pid, getpid());
  EXPECT_EQ(facts.parent, getppid());
  EXPECT_EQ(facts.session, getsid(0));
  EXPECT_GT(facts.memory_bytes, 4096U);
  EXPECT_TRUE(runtime::is_alive(facts.id));
}

TEST(ProcessId, IsReadAfterANameWithBrackets) {
  ASSERT_EQ(prctl(PR_SET_NAME, "a) Z 1 1"), 0);
  ProcessFacts facts;
  ASSERT_TRUE(runtime::read_process(getpid(), facts));
  EXPECT_EQ(facts.parent, getppid());
  EXPECT_NE(facts.state, 'Z');
}

TEST(ProcessId, OfAZombieIsNotAlive) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  ASSERT_GT(child, 0);
  siginfo_t info = {};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  ProcessFacts facts;
  ASSERT_TRUE(runtime::read_process(child, facts));
  EXPECT_EQ(facts.state, 'Z');
  EXPECT_FALSE(runtime::is_alive(facts.id));
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(runtime::read_process(child, facts));
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace tarvio_test
