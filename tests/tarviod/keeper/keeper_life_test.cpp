// The life of an application: from its start to the end of its last process.
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>

#include "kept.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {
namespace {

using runtime::ExitKind;
using tarviod::AppSetup;
using tarviod::Ask;
using tarviod::KeptApp;
using tarviod::KeptState;

using Keeper = Kept;

TEST_F(Keeper, RunsAnApplicationFromItsStartToItsStop) {
  AppSetup clock = setup();
  set_text(clock.version, "1.2-3");
  clock.starts = 4;
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(start("clock", clock), 0);
  const KeptApp running = app("clock");
  EXPECT_EQ(running.state, KeptState::kRunning);
  EXPECT_STREQ(running.version, "1.2-3");
  EXPECT_EQ(running.starts, 4);
  EXPECT_GE(running.since, before);
  EXPECT_EQ(running.exit_status, -1);
  EXPECT_EQ(running.not_run.number, 0);
  EXPECT_TRUE(runtime::is_alive(running.process));
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_FALSE(runtime::is_alive(running.process));
  EXPECT_EQ(app("clock").state, KeptState::kStopped);
}

TEST_F(Keeper, KnowsNoApplicationAtFirst) { EXPECT_TRUE(applications(link_).empty()); }

TEST_F(Keeper, DoesNotStartAnApplicationThatRuns) {
  EXPECT_EQ(start("clock", setup()), 0);
  const pid_t process = app("clock").process.pid;
  EXPECT_EQ(start("clock", setup()), EALREADY);
  EXPECT_EQ(app("clock").process.pid, process);
}

TEST_F(Keeper, RefusesANameThatIsNoLineOfTheLedger) {
  EXPECT_EQ(start("", setup()), EINVAL);
  EXPECT_EQ(start("two\nlines", setup()), EINVAL);
  EXPECT_TRUE(applications(link_).empty());
}

TEST_F(Keeper, StopsWhatDoesNotRun) {
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_EQ(start("clock", setup("exit 0")), 0);
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_EQ(app("clock").state, KeptState::kEnded);
}

TEST_F(Keeper, RemembersAnExitStatus) {
  EXPECT_EQ(start("clock", setup("exit 3")), 0);
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  const int status = app("clock").exit_status;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
}

TEST_F(Keeper, RemembersTheSignalThatEndedAnApplication) {
  EXPECT_EQ(start("clock", setup("kill -SEGV $$")), 0);
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  EXPECT_EQ(WTERMSIG(app("clock").exit_status), SIGSEGV);
}

TEST_F(Keeper, StartsAnApplicationAgainAfterItsEnd) {
  EXPECT_EQ(start("clock", setup("exit 3")), 0);
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  EXPECT_EQ(start("clock", setup()), 0);
  EXPECT_EQ(app("clock").state, KeptState::kRunning);
  EXPECT_EQ(app("clock").exit_status, -1);
  EXPECT_EQ(applications(link_).size(), 1U);
}

TEST_F(Keeper, SaysWhyAStartFileCannotBeExecuted) {
  AppSetup clock = setup();
  set_text(clock.start_file, "/no/such/file");
  EXPECT_EQ(start("clock", clock), 0);
  EXPECT_EQ(app("clock").state, KeptState::kEnded);
  EXPECT_EQ(app("clock").not_run.kind, ExitKind::kNotRun);
  EXPECT_EQ(app("clock").not_run.number, ENOENT);
  set_text(clock.start_file, "/etc/passwd");
  EXPECT_EQ(start("clock", clock), 0);
  EXPECT_EQ(app("clock").not_run.number, EACCES);
}

// Preloads a keeper whose children do not end by themselves once they have said what failed.
class KeeperWithHeldExits : public Kept {
 protected:
  void SetUp() override {
    with_module(TARVIOD_HELD_EXIT, "")();
    Kept::SetUp();
    ::unsetenv("LD_PRELOAD");
  }
};

TEST_F(KeeperWithHeldExits, HasSettledAFailedStartBeforeItAnswers) {
  AppSetup clock = setup();
  set_text(clock.start_file, "/no/such/file");
  EXPECT_EQ(start("clock", clock), 0);
  EXPECT_EQ(app("clock").state, KeptState::kEnded);
  EXPECT_EQ(app("clock").not_run.number, ENOENT);
}

TEST_F(KeeperWithHeldExits, GoesOnAfterAStopFileThatCannotRun) {
  AppSetup clock = setup();
  set_text(clock.start_file, "/usr/bin/yes");
  set_text(clock.output, "/dev/null");
  set_text(clock.stop_file, "/no/such/file");
  clock.stop_timeout_ms = 1'000'000'000;
  EXPECT_EQ(start("clock", clock), 0);
  EXPECT_EQ(stop("clock"), ENOENT);
  EXPECT_EQ(WTERMSIG(app("clock").exit_status), SIGTERM);
}

TEST_F(Keeper, RunsAScriptWithoutAFirstLineByAShell) {
  AppSetup clock = setup();
  write_program(clock.start_file, "exit 5\n");
  EXPECT_EQ(start("clock", clock), 0);
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  EXPECT_EQ(WEXITSTATUS(app("clock").exit_status), 5);
}

// Start files that leave their process to others, which write their number.
struct Leaving {
  const char* description;
  const char* start;
};

class LeavingApplication : public Kept, public testing::WithParamInterface<Leaving> {};

TEST_P(LeavingApplication, LivesUntilItsLastProcessHasEnded) {
  EXPECT_EQ(start("clock", setup(GetParam().start)), 0);
  const pid_t process = process_in("process");
  // The start file has ended by then, and was taken for no end of the application.
  runtime::ProcessFacts facts;
  ASSERT_TRUE(runtime::read_process(process, facts));
  ASSERT_TRUE(eventually([&] {
    const pid_t oldest = app("clock").process.pid;
    return oldest == process || oldest == facts.parent;
  }));
  EXPECT_EQ(app("clock").state, KeptState::kRunning);
  EXPECT_EQ(app("clock").exit_status, -1);
  EXPECT_EQ(start("clock", setup()), EALREADY);
  ::kill(process, SIGKILL);
  EXPECT_TRUE(becomes("clock", KeptState::kEnded));
}

TEST_P(LeavingApplication, IsStoppedWithAllItsProcesses) {
  EXPECT_EQ(start("clock", setup(GetParam().start)), 0);
  const pid_t process = process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_TRUE(ends(process));
  EXPECT_EQ(app("clock").state, KeptState::kStopped);
}

INSTANTIATE_TEST_SUITE_P(
    , LeavingApplication,
    testing::Values(
        Leaving{"InItsSession", "sh -c 'echo $$ >process; exec sleep 600' &"},
        Leaving{"InASessionOfItsOwn", "setsid sh -c 'echo $$ >process; exec sleep 600' &"},
        Leaving{"ByTwoForks",
                "(setsid sh -c 'sh -c \"echo \\$\\$ >process; exec sleep 600\" & exit' &)"},
        Leaving{"WithoutItsEnvironmentInItsSession",
                "env -i /bin/sh -c 'echo $$ >process; exec sleep 600' &"},
        Leaving{"WithoutItsEnvironmentInADaemonsSession",
                "setsid sh -c 'env -i /bin/sh -c \"echo \\$\\$ >process; exec sleep 600\"' &"}),
    [](const auto& each) { return std::string(each.param.description); });

TEST_F(Keeper, KeepsApplicationsApartThatLeaveTheirSessions) {
  const char kLeaves[] = "setsid sh -c 'echo $$ >process; exec sleep 600' &";
  EXPECT_EQ(start("clock", setup(kLeaves)), 0);
  const pid_t clock = process_in("process");
  std::filesystem::remove(directory_ / "process");
  EXPECT_EQ(start("radio", setup(kLeaves)), 0);
  const pid_t radio = process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_TRUE(ends(clock));
  EXPECT_TRUE(is_alive(radio));
  EXPECT_EQ(app("radio").state, KeptState::kRunning);
}

// With an environment that takes many reads, in the middle of which another program is executed.
class KeeperWithLongEnvironment : public Kept {
 protected:
  void SetUp() override {
    ASSERT_EQ(::setenv("TARVIO_TEST_FILLER", std::string(100'000, 'x').c_str(), 1), 0);
    Kept::SetUp();
  }
  void TearDown() override {
    Kept::TearDown();
    (void)::unsetenv("TARVIO_TEST_FILLER");
  }
};

// The orphan makes the keeper look for what is left of the application.
TEST_F(KeeperWithLongEnvironment, KnowsAnApplicationThatExecutesOneProgramAfterAnother) {
  const std::string again = script("again",
                                   "(true &)\n"
                                   "[ $1 = 0 ] && { echo $$ >process; exec sleep 600; }\n"
                                   "exec ./again $(($1 - 1))");
  EXPECT_EQ(start("clock", setup("setsid " + again + " 300 &")), 0);
  (void)process_in("process");
  EXPECT_EQ(app("clock").state, KeptState::kRunning);
}

// What reports a failed start is of no use once the program runs.
TEST_F(Keeper, HoldsNothingOpenForAnApplicationButItsOutput) {
  // It closes what came with a request after its answer.
  const pid_t keeper = keeper_process();
  ASSERT_TRUE(eventually([&] { return status_line(keeper, "State") == "State:\tS (sleeping)"; }));
  const int before = descriptor_count(keeper);
  ASSERT_EQ(start("clock", setup()), 0);
  EXPECT_TRUE(eventually([&] { return descriptor_count(keeper_process()) == before; }))
      << descriptor_count(keeper_process());
  AppSetup radio = setup();
  set_text(radio.output, "syslog");
  ASSERT_EQ(start("radio", radio), 0);
  EXPECT_TRUE(eventually([&] { return descriptor_count(keeper_process()) == before + 2; }))
      << descriptor_count(keeper_process());
}

TEST_F(Keeper, KeepsAnApplicationThatClosesItsOutput) {
  const pid_t keeper = keeper_process();
  ASSERT_TRUE(eventually([&] { return status_line(keeper, "State") == "State:\tS (sleeping)"; }));
  const int before = descriptor_count(keeper);
  AppSetup clock = setup("exec >&- 2>&-; echo $$ >process; until [ -e go ]; do sleep 0.01; done");
  set_text(clock.output, "syslog");
  ASSERT_EQ(start("clock", clock), 0);
  const pid_t process = process_in("process");
  EXPECT_TRUE(eventually([&] { return descriptor_count(keeper) == before; }));
  EXPECT_EQ(app("clock").state, KeptState::kRunning);
  EXPECT_EQ(app("clock").process.pid, process);
  write_file(directory_ / "go", "");
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  EXPECT_EQ(app("clock").exit_status, 0);
  EXPECT_EQ(start("clock", clock), 0);
  EXPECT_EQ(stop("clock"), 0);
}

TEST_F(Keeper, StaysAsItIsAfterAThousandStarts) {
  AppSetup clock = setup();
  set_text(clock.start_file, "/bin/true");
  set_text(clock.stop_file, "/bin/true");
  set_text(clock.output, "syslog");
  const auto start_and_end = [&] {
    ASSERT_EQ(start("clock", clock), 0);
    ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  };
  start_and_end();
  const pid_t keeper = keeper_process();
  const int before = descriptor_count(keeper);
  for (int starts = 0; starts < 1000; ++starts) start_and_end();
  // The pipe of the output is closed when its last writer is gone.
  EXPECT_TRUE(eventually([&] { return descriptor_count(keeper) <= before; }))
      << descriptor_count(keeper);
}

}  // namespace
}  // namespace tarvio_test
