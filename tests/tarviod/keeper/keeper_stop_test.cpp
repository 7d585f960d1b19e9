// Ways to stop an application, and to keep it from stopping.
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "kept.h"
#include "runtime/run_paths.h"
#include "support/apps/applications.h"
#include "support/children.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using tarviod::AppSetup;
using tarviod::Ask;
using tarviod::KeeperFound;
using tarviod::KeeperLink;
using tarviod::KeptState;

constexpr char kStays[] = "echo $$ >process; exec sleep 600";
constexpr char kEndsIt[] = ": >stopped; kill $(cat process)";
constexpr int kNever = 1'000'000'000;

using KeeperStop = Kept;

TEST_F(KeeperStop, RunsTheStopFile) {
  AppSetup clock = setup(kStays, kEndsIt);
  clock.stop_timeout_ms = kNever;
  EXPECT_EQ(start("clock", clock), 0);
  const pid_t process = process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_TRUE(has("stopped"));
  EXPECT_FALSE(is_alive(process));
  EXPECT_EQ(app("clock").state, KeptState::kStopped);
}

TEST_F(KeeperStop, WaitsForTheStopFile) {
  AppSetup clock = setup(kStays, std::string(kEndsIt) + "; sleep 0.1; : >finished");
  clock.stop_timeout_ms = kNever;
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_TRUE(has("finished"));
}

TEST_F(KeeperStop, TerminatesWhatHasNoStopFile) {
  EXPECT_EQ(start("clock", setup(kStays)), 0);
  (void)process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_EQ(WTERMSIG(app("clock").exit_status), SIGTERM);
}

TEST_F(KeeperStop, TerminatesAtOnceWhenTheStopFileCannotRun) {
  AppSetup clock = setup(kStays);
  clock.stop_timeout_ms = kNever;
  set_text(clock.stop_file, "/no/such/file");
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  EXPECT_EQ(stop("clock"), ENOENT);
  EXPECT_EQ(WTERMSIG(app("clock").exit_status), SIGTERM);
}

TEST_F(KeeperStop, TerminatesWhatItsStopFileLeaves) {
  AppSetup clock = setup(kStays, ": >stopped");
  clock.stop_timeout_ms = 50;
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_EQ(WTERMSIG(app("clock").exit_status), SIGTERM);
}

TEST_F(KeeperStop, KillsWhatIgnoresTheTermination) {
  AppSetup clock = setup("trap '' TERM; echo $$ >process; while :; do sleep 600; done");
  clock.stop_timeout_ms = 50;
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_EQ(WTERMSIG(app("clock").exit_status), SIGKILL);
}

TEST_F(KeeperStop, EndsAStopFileThatHangs) {
  AppSetup clock = setup(kStays, "trap '' TERM; while :; do sleep 600; done");
  clock.stop_timeout_ms = 50;
  EXPECT_EQ(start("clock", clock), 0);
  const pid_t process = process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_FALSE(is_alive(process));
  EXPECT_FALSE(any_application_runs());
}

TEST_F(KeeperStop, EndsWhatHasLeftTheSessionOfAProcessThatRuns) {
  EXPECT_EQ(start("clock", setup("setsid sh -c 'echo $$ >process; exec sleep 600' & wait")), 0);
  const pid_t process = process_in("process");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_TRUE(ends(process));
}

TEST_F(KeeperStop, RunsTheStopFileAsItWasAtTheStart) {
  AppSetup clock = setup(kStays, kEndsIt);
  clock.stop_timeout_ms = kNever;
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  fs::remove(clock.stop_file);
  script(fs::path(clock.stop_file).filename(), ": >other");
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_TRUE(has("stopped"));
  EXPECT_FALSE(has("other"));
}

TEST_F(KeeperStop, RunsAStopFileThatWasRemoved) {
  AppSetup clock = setup(kStays, kEndsIt);
  clock.stop_timeout_ms = kNever;
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  fs::remove(clock.stop_file);
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_TRUE(has("stopped"));
}

TEST_F(KeeperStop, RunsARemovedStopFileThatIsAProgram) {
  AppSetup clock = setup("echo $$ >process; until [ -e go ]; do sleep 0.01; done");
  clock.stop_timeout_ms = kNever;
  set_text(clock.stop_file, directory_ / "cat");
  fs::copy_file("/bin/cat", clock.stop_file);  // ends at once, with nothing to read
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  fs::remove(clock.stop_file);
  KeeperLink other;
  ASSERT_EQ(other.open(), KeeperFound::kRunning);
  std::thread stopping([&] { EXPECT_EQ(ask(other, Ask::kStop, "clock"), 0); });
  EXPECT_TRUE(becomes("clock", KeptState::kStopping));
  write_file(directory_ / "go", "");
  stopping.join();
  // One that cannot run would have led to its termination.
  EXPECT_EQ(app("clock").exit_status, 0);
}

TEST_F(KeeperStop, LetsOthersBeServedMeanwhile) {
  AppSetup clock = setup(kStays, "until [ -e go ]; do sleep 0.01; done; kill $(cat process)");
  clock.stop_timeout_ms = kNever;
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  KeeperLink other;
  ASSERT_EQ(other.open(), KeeperFound::kRunning);
  std::thread stopping([&] { EXPECT_EQ(ask(other, Ask::kStop, "clock"), 0); });
  EXPECT_TRUE(becomes("clock", KeptState::kStopping));
  EXPECT_EQ(start("clock", setup()), EBUSY);
  EXPECT_EQ(start("radio", setup()), 0);
  write_file(directory_ / "go", "");
  stopping.join();
  EXPECT_EQ(app("clock").state, KeptState::kStopped);
  EXPECT_EQ(app("radio").state, KeptState::kRunning);
}

TEST_F(KeeperStop, IsAnsweredToAllThatAskForIt) {
  AppSetup clock = setup(kStays, "until [ -e go ]; do sleep 0.01; done; kill $(cat process)");
  clock.stop_timeout_ms = kNever;
  EXPECT_EQ(start("clock", clock), 0);
  (void)process_in("process");
  std::vector<std::thread> stopping;
  for (int asked = 0; asked < 3; ++asked) {
    stopping.emplace_back([] {
      KeeperLink other;
      EXPECT_EQ(other.open(), KeeperFound::kRunning);
      EXPECT_EQ(ask(other, Ask::kStop, "clock"), 0);
    });
  }
  EXPECT_TRUE(becomes("clock", KeptState::kStopping));
  write_file(directory_ / "go", "");
  for (std::thread& each : stopping) each.join();
}

// The applications of a keeper that ends, and the keeper.
class KeeperEnd : public Kept {
 protected:
  void SetUp() override {
    Kept::SetUp();
    ASSERT_EQ(start("clock", setup(kStays, kEndsIt)), 0);
    clock_ = process_in("process");
    ASSERT_EQ(start("radio", setup()), 0);
    radio_ = app("radio").process.pid;
    keeper_ = keeper_process();
  }
  void expect_end() const {
    EXPECT_EQ(exit_status_of(keeper_), 0);
    EXPECT_TRUE(has("stopped"));
    EXPECT_FALSE(is_alive(clock_));
    EXPECT_FALSE(is_alive(radio_));
    EXPECT_FALSE(fs::exists(runtime::kLedgerPath));
    EXPECT_FALSE(fs::exists(runtime::kKeeperSocket));
  }

  pid_t clock_ = -1;
  pid_t radio_ = -1;
  pid_t keeper_ = -1;
};

TEST_F(KeeperEnd, StopsAllApplications) {
  EXPECT_EQ(ask(link_, Ask::kEnd), 0);
  expect_end();
}

TEST_F(KeeperEnd, IsAskedForBySigtermWithoutAManager) {
  link_.close();
  ::kill(keeper_, SIGTERM);
  expect_end();
}

TEST_F(KeeperEnd, IsNotAskedForBySigtermBesideAManager) {
  ::kill(keeper_, SIGTERM);
  EXPECT_EQ(app("clock").state, KeptState::kRunning);
  EXPECT_EQ(start("web", setup()), 0);
}

TEST_F(KeeperEnd, IsNotAskedForByATerminal) {
  for (const int signal : {SIGINT, SIGHUP}) ::kill(keeper_, signal);
  EXPECT_EQ(app("clock").state, KeptState::kRunning);
  EXPECT_EQ(::getsid(keeper_), keeper_);
}

TEST_F(KeeperEnd, LetsAManagerStartAnotherOne) {
  EXPECT_EQ(ask(link_, Ask::kEnd), 0);
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_TRUE(applications(link_).empty());
}

}  // namespace
}  // namespace tarvio_test
