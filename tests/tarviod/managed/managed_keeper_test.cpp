// After a keeper, or a manager and its keeper, were killed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "managed.h"
#include "runtime/run_paths.h"
#include "runtime/state_file.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

constexpr char kAfterKeeper[] =
    "tarviod: keeper: has died: its applications are ended and started again\n";

constexpr char kAfterSilence[] =
    "tarviod: keeper: does not answer, so it is killed: its applications are ended and started "
    "again\n";

class ManagedKeeper : public Managed {};

TEST_F(ManagedKeeper, StartsAllAgainUnderANewKeeper) {
  for (const char* name : {"clock", "radio", "web"}) install(name, kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(start("radio"), kDone);
  const pid_t clock = only_process_of("clock");
  kill_keeper();
  EXPECT_TRUE(says("clock", kStartedAfterKeeper));
  EXPECT_TRUE(says("radio", kStartedAfterKeeper));
  EXPECT_NE(only_process_of("clock"), clock);
  (void)only_process_of("radio");
  EXPECT_TRUE(processes_of("web").empty());
  EXPECT_EQ(status_of("web"), "");
  EXPECT_TRUE(eventually([] { return published("clock").pid == only_process_of("clock"); }));
  EXPECT_EQ(published("clock").starts, 2);
  EXPECT_EQ(manager_->errors(), kAfterKeeper);
}

TEST_F(ManagedKeeper, SaysWhatKeepsAnApplicationFromBeingStartedAgain) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  configure("clock", "restart: sometimes\n");
  kill_keeper();
  EXPECT_TRUE(says("clock", "2\ncannot be started: its settings have a mistake\n"));
  EXPECT_TRUE(becomes("clock", "ended"));
  EXPECT_EQ(published("clock").exit, "not-started " + std::to_string(runtime::kBadSettings));
}

TEST_F(ManagedKeeper, AnswersAStartThatFindsTheKeeperDead) {
  install("clock", kStays);
  install("radio", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  ::kill(manager_->pid(), SIGSTOP);
  const Socket client = send_request("start_exact\nradio\n");
  kill_keeper();
  ::kill(manager_->pid(), SIGCONT);
  EXPECT_EQ(client.read_to_end(), kDone);
  (void)only_process_of("radio");
  (void)only_process_of("clock");
  EXPECT_EQ(status_of("radio"), kStarted);
  EXPECT_EQ(published("clock").pid, only_process_of("clock"));
}

TEST_F(ManagedKeeper, StartsNothingAtTheManagersEnd) {
  const std::string starts = directory_ / "starts";
  const std::vector<std::string> names = {"clock", "radio", "web"};
  for (const std::string& name : names)
    install(name, "echo >>" + starts + "; exec sleep 600", "sleep 600");
  start_manager();
  for (const std::string& name : names) {
    EXPECT_EQ(start(name), kDone);
    (void)only_process_of(name);
  }
  const auto is_being_stopped = [](const std::string& name) {
    return processes_of(name).size() > 1;
  };
  EXPECT_TRUE(eventually([&] { return read_file(starts) == "\n\n\n"; }));
  manager_->send(SIGTERM);
  EXPECT_TRUE(eventually([&] { return std::ranges::any_of(names, is_being_stopped); }));
  kill_keeper();
  EXPECT_EQ(manager_->end(), 0);
  EXPECT_EQ(read_file(starts), "\n\n\n");
  for (const std::string& name : names) EXPECT_TRUE(processes_of(name).empty());
  EXPECT_EQ(manager_->errors(), "tarviod: keeper: has died: its applications are ended\n");
}

TEST_F(ManagedKeeper, EndsTheApplicationThatWasToBeStopped) {
  install("clock", kStays, "sleep 600");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const Socket client = send_request("stop_exact\nclock\n");
  EXPECT_TRUE(eventually([] { return processes_of("clock").size() > 1; }));
  kill_keeper();
  EXPECT_EQ(client.read_to_end(), kDone);
  EXPECT_TRUE(processes_of("clock").empty());
  EXPECT_EQ(status_of("clock"), "");
}

TEST_F(ManagedKeeper, IsNotDoneAfterATerminationThatWasMeantForTheManager) {
  install("clock", kStays);
  install("radio", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(start("radio"), kDone);
  const pid_t clock = only_process_of("clock");
  const pid_t radio = only_process_of("radio");
  const pid_t keeper = keeper_process();
  ::kill(keeper, SIGTERM);
  EXPECT_EQ(stop("radio"), kDone);
  EXPECT_EQ(only_process_of("clock"), clock);
  EXPECT_EQ(status_of("clock"), kStarted);
  EXPECT_EQ(keeper_process(), keeper);
  EXPECT_EQ(manager_->errors(), "");
  // As `killall tarviod` does.
  ::kill(keeper, SIGTERM);
  manager_->send(SIGTERM);
  EXPECT_EQ(manager_->end(), 0);
  EXPECT_TRUE(ends(keeper));
  EXPECT_FALSE(is_alive(clock) || is_alive(radio));
  EXPECT_EQ(manager_->errors(), "");
}

TEST_F(ManagedKeeper, StartsAllAgainWhenBothWereKilled) {
  install("clock", kStays);
  install("radio", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  kill_manager();
  kill_keeper();
  EXPECT_TRUE(is_alive(clock));
  start_manager();
  EXPECT_FALSE(is_alive(clock));
  EXPECT_EQ(status_of("clock"), kStartedAfterKeeper);
  EXPECT_EQ(published("clock").pid, only_process_of("clock"));
  EXPECT_TRUE(processes_of("radio").empty());
}

TEST_F(ManagedKeeper, NamesABrokenLedger) {
  start_manager();
  kill_manager();
  EXPECT_TRUE(eventually([] { return !fs::exists(runtime::kLedgerPath); }));
  write_file(runtime::kLedgerPath, "app 1 1 clock\n");
  start_manager();
  EXPECT_EQ(
      manager_->errors(),
      "tarviod: /run/tarvio/processes: is not whole: all processes with TARVIO_APPLICATION in "
      "their environment are ended\n");
}

TEST_F(ManagedKeeper, RunsNothingTwiceAfterABrokenLedger) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  kill_manager();
  kill_keeper();
  write_file(runtime::kLedgerPath, "junk\n");
  start_manager();
  EXPECT_NE(only_process_of("clock"), clock);
  EXPECT_EQ(status_of("clock"), kStartedAfterKeeper);
}

TEST_F(ManagedKeeper, NamesALedgerThatCannotBeWritten) {
  install("clock", kStays, "sleep 600");
  start_manager();
  fs::create_directories("/run/tarvio/processes.new/in-the-way");
  EXPECT_EQ(start("clock"), std::to_string(EEXIST) + "\n\n");
  EXPECT_EQ(status_of("clock"), "2\ncannot be started: File exists\n");
  const std::string error = "tarviod: /run/tarvio/processes: File exists\n";
  EXPECT_EQ(manager_->errors(), error);
  fs::remove_all("/run/tarvio/processes.new");
  EXPECT_EQ(start("clock"), kDone);
  (void)only_process_of("clock");
  fs::create_directories("/run/tarvio/processes.new/in-the-way");
  EXPECT_EQ(stop("clock"), kDone);
  EXPECT_TRUE(processes_of("clock").empty());
  EXPECT_EQ(
      manager_->errors(),
      error + error + "tarviod: clock: cannot run its stop file: File exists: sent SIGTERM\n");
  fs::remove_all("/run/tarvio/processes.new");
}

// The directory of the keeper's socket is in the way of a new one for a while.
TEST_F(ManagedKeeper, TriesUntilThereIsAKeeper) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  fs::create_directories("/run/tarvio/keeper.new/in-the-way");
  kill_keeper();
  const std::string error = "tarviod: /run/tarvio/keeper: Address already in use\n";
  EXPECT_TRUE(eventually([&] { return manager_->errors() == error; }));
  EXPECT_EQ(request("status_all\n").substr(0, 5), "clock");
  fs::remove_all("/run/tarvio/keeper.new");
  EXPECT_TRUE(says("clock", kStartedAfterKeeper));
  (void)only_process_of("clock");
  EXPECT_EQ(manager_->errors(), error + kAfterKeeper);
}

TEST_F(ManagedKeeper, ReplacesAKeeperThatDoesNotAnswer) {
  install("clock", kStays);
  install("radio", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  const pid_t keeper = keeper_process();
  ::kill(keeper, SIGSTOP);
  const Socket client = send_request("start_exact\nradio\n");
  EXPECT_TRUE(eventually([&] { return manager_->errors() == kAfterSilence; }));
  EXPECT_EQ(client.read_to_end(), kDone);
  EXPECT_FALSE(is_alive(keeper) || is_alive(clock));
  EXPECT_EQ(status_of("clock"), kStartedAfterKeeper);
  (void)only_process_of("clock");
  (void)only_process_of("radio");
}

TEST_F(ManagedKeeper, ReplacesAKeeperThatDoesNotAnswerTheNextManager) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  const pid_t keeper = keeper_process();
  kill_manager();
  ::kill(keeper, SIGSTOP);
  start_manager();
  EXPECT_FALSE(is_alive(keeper) || is_alive(clock));
  EXPECT_EQ(status_of("clock"), kStartedAfterKeeper);
  (void)only_process_of("clock");
  EXPECT_EQ(manager_->errors(), kAfterSilence);
}

TEST_F(ManagedKeeper, IsNotDoneBesideAManagerThatRuns) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  const PublishedApp before = published("clock");
  const Ended other = run_tarviod({"--start-all"});
  EXPECT_EQ(other.status, 1);
  EXPECT_EQ(only_process_of("clock"), clock);
  EXPECT_EQ(published("clock").pid, before.pid);
  EXPECT_EQ(stop("clock"), kDone);
}

}  // namespace
}  // namespace tarvio_test
