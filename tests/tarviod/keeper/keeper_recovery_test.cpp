// After a keeper that was killed: nothing of it runs any more when the next one does.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kept.h"
#include "runtime/run_paths.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using runtime::kLedgerPath;
using tarviod::AppSetup;
using tarviod::Ask;
using tarviod::KeeperFound;
using tarviod::KeeperLink;
using tarviod::KeptState;

constexpr char kStays[] = "echo $$ >process; exec sleep 600";

void kill_keeper() {
  const pid_t keeper = keeper_process();
  ::kill(keeper, SIGKILL);
  (void)end_of(keeper);
}

class KeeperRecovery : public Kept {
 protected:
  // The process that the start file says, once its keeper was killed.
  pid_t left_by(const AppSetup& setup) {
    EXPECT_EQ(start("clock", setup), 0);
    const pid_t process = process_in("process");
    kill_keeper();
    EXPECT_TRUE(is_alive(process));
    return process;
  }
};

TEST_F(KeeperRecovery, EndsWhatIsLeft) {
  const pid_t process = left_by(setup(kStays));
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_TRUE(ends(process));
  EXPECT_TRUE(applications(link_).empty());
}

TEST_F(KeeperRecovery, EndsWhatHasLeftItsSession) {
  const pid_t process = left_by(setup("setsid sh -c 'echo $$ >process; exec sleep 600' & exit"));
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_TRUE(ends(process));
}

TEST_F(KeeperRecovery, EndsWhatIgnoresItsTermination) {
  const pid_t process =
      left_by(setup("trap '' TERM; echo $$ >process; while :; do sleep 600; done"));
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_TRUE(ends(process));
}

TEST_F(KeeperRecovery, EndsAStopFileThatRuns) {
  EXPECT_EQ(start("clock", setup("sleep 600", "echo $$ >process; sleep 600")), 0);
  KeeperLink other;
  ASSERT_EQ(other.open(), KeeperFound::kRunning);
  std::thread stopping([&] { EXPECT_EQ(ask(other, Ask::kStop, "clock"), -1); });
  const pid_t process = process_in("process");
  kill_keeper();
  stopping.join();
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_TRUE(ends(process));
}

TEST_F(KeeperRecovery, EndsAKeeperWhoseSocketIsGone) {
  EXPECT_EQ(start("clock", setup(kStays)), 0);
  const pid_t process = process_in("process");
  const pid_t keeper = keeper_process();
  fs::remove(runtime::kKeeperSocket);
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_NE(keeper_process(), keeper);
  EXPECT_EQ(exit_status_of(keeper), 0);
  EXPECT_FALSE(is_alive(process));
}

TEST_F(KeeperRecovery, LeavesNothingWheneverTheKeeperIsKilled) {
  const AppSetup kinds[] = {setup(), setup("setsid sleep 600 &"), setup("exit 0", "exit 0")};
  std::mt19937 random(12);
  for (int round = 0; round < 20; ++round) {
    std::thread killing([delay = std::chrono::microseconds(random() % 20000)] {
      std::this_thread::sleep_for(delay);
      kill_keeper();
    });
    for (int at = 0; start("app" + std::to_string(at), kinds[at % 3]) == 0; ++at) {
    }
    killing.join();
    ASSERT_EQ(link_.open(), KeeperFound::kStarted);
    EXPECT_TRUE(eventually([] { return !any_application_runs(); })) << round;
  }
}

struct BrokenLedger {
  const char* description;
  const char* sed;  // what breaks it
};

class KeeperWithBrokenLedger : public KeeperRecovery,
                               public testing::WithParamInterface<BrokenLedger> {};

TEST_P(KeeperWithBrokenLedger, IsReplacedAndItsApplicationsAreEnded) {
  const pid_t process = left_by(setup(kStays));
  ASSERT_EQ(std::system((std::string("sed -i '") + GetParam().sed + "' " + kLedgerPath).c_str()),
            0);
  EXPECT_EQ(link_.open(), KeeperFound::kStartedWithoutLedger);
  EXPECT_TRUE(ends(process));
  EXPECT_EQ(start("clock", setup(kStays)), 0);
}

INSTANTIATE_TEST_SUITE_P(, KeeperWithBrokenLedger,
                         testing::Values(BrokenLedger{"Empty", "d"},
                                         BrokenLedger{"WithoutABoot", "1d"},
                                         BrokenLedger{"WithoutAnEnd", "$d"},
                                         BrokenLedger{"WithoutANumber", "s/^app [0-9]*/app x/"},
                                         BrokenLedger{"WithAnUnknownLine", "2s/^/x/"}),
                         [](const auto& each) { return std::string(each.param.description); });

// A FIFO would hold whoever opens it, and no file can take the place of a directory.
TEST_F(KeeperRecovery, IsNotHinderedByWhatIsInThePlaceOfItsFiles) {
  for (const std::string path : {"processes", "processes.new", "keeper", "keeper.new"}) {
    for (const char* const command : {"mkfifo", "mkdir"}) {
      EXPECT_EQ(ask(link_, Ask::kEnd), 0);
      const std::string make = command + (" /run/tarvio/" + path);
      ASSERT_EQ(std::system(make.c_str()), 0);
      EXPECT_EQ(link_.open(),
                path == "processes" ? KeeperFound::kStartedWithoutLedger : KeeperFound::kStarted)
          << make;
      EXPECT_EQ(start("clock", setup()), 0) << make;
    }
  }
}

TEST_F(KeeperRecovery, LeavesAloneWhatAnEarlierBootHasRun) {
  const pid_t process = left_by(setup(kStays));
  ASSERT_EQ(std::system((std::string("sed -i '1s/ [^-]*/ 01234567/' ") + kLedgerPath).c_str()), 0);
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_TRUE(is_alive(process));
  ::kill(process, SIGKILL);
}

TEST_F(KeeperRecovery, LeavesAloneAProcessWithTheNumberOfAnEarlierOne) {
  EXPECT_EQ(start("clock", setup("exec env -i sleep 600")), 0);
  const pid_t process = app("clock").process.pid;
  EXPECT_TRUE(eventually([&] { return status_line(process, "Name") == "Name:\tsleep"; }));
  kill_keeper();
  const std::string line = "app " + std::to_string(process) + " ";
  ASSERT_EQ(std::system(("sed -i 's/^" + line + "/&1/' " + kLedgerPath).c_str()), 0);
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_TRUE(is_alive(process));
  ::kill(process, SIGKILL);
}

TEST_F(KeeperRecovery, FindsTheLedgerWholeAtEveryMoment) {
  std::atomic<bool> done = false;
  std::thread reader([&] {
    while (!done) {
      const std::string ledger = read_file(kLedgerPath);
      ASSERT_TRUE(ledger.starts_with("boot ") && ledger.ends_with("\nend\n")) << ledger;
    }
  });
  AppSetup quick = setup();
  set_text(quick.start_file, "/bin/true");
  for (int started = 0; started < 300; ++started) {
    EXPECT_EQ(start("clock", quick), 0);
    EXPECT_TRUE(becomes("clock", KeptState::kEnded));
  }
  done = true;
  reader.join();
}

TEST_F(KeeperRecovery, FindsALedgerOfRootAlone) {
  struct stat info = {};
  ASSERT_EQ(::stat(kLedgerPath, &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
}

TEST_F(KeeperRecovery, DoesNotMissAnApplicationSinceUnrecordedOnesDoNotRun) {
  EXPECT_EQ(start("radio", setup("exec sleep 600")), 0);
  fs::create_directories("/run/tarvio/processes.new/in-the-way");
  EXPECT_EQ(start("clock", setup(": >ran")), -EEXIST);
  EXPECT_EQ(applications(link_).size(), 1U);
  fs::remove_all("/run/tarvio/processes.new");
  EXPECT_EQ(start("clock", setup("exec sleep 600")), 0);
  EXPECT_FALSE(has("ran"));
}

// Preloads a keeper that cannot record anything until a file is there.
class KeeperThatRecordsLate : public KeeperRecovery {
 protected:
  void SetUp() override {
    write_file(go_, "");
    with_module(TARVIOD_HELD_RENAME, go_)();
    KeeperRecovery::SetUp();
    ::unsetenv("LD_PRELOAD");
    fs::remove(go_);
  }

  const std::string go_ = directory_ / "go";
};

TEST_F(KeeperThatRecordsLate, RunsNothingBefore) {
  std::thread starting([this] { EXPECT_EQ(start("clock", setup(": >ran")), 0); });
  const pid_t keeper = keeper_process();
  EXPECT_TRUE(eventually([&] { return !children_of(keeper).empty(); }));
  EXPECT_FALSE(has("ran"));
  write_file(go_, "");
  starting.join();
  EXPECT_TRUE(eventually([this] { return has("ran"); }));
}

TEST_F(KeeperThatRecordsLate, LeavesNothingWhenItIsKilled) {
  std::thread starting([this] { EXPECT_EQ(start("clock", setup(": >ran")), -1); });
  const pid_t keeper = keeper_process();
  std::vector<pid_t> children;
  EXPECT_TRUE(eventually([&] { return !(children = children_of(keeper)).empty(); }));
  kill_keeper();
  starting.join();
  for (const pid_t child : children) EXPECT_TRUE(ends(child));
  EXPECT_FALSE(has("ran"));
}

}  // namespace
}  // namespace tarvio_test
