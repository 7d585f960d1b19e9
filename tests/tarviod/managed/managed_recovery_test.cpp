// After a manager was killed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "managed.h"
#include "runtime/run_paths.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class ManagedRecovery : public Managed {
 protected:
  // From now on no change is published, as if the manager was killed before.
  void hold_state() {
    held_ = read_file(runtime::kStatePath);
    fs::create_directories("/run/tarvio/state.new/in-the-way");
  }
  void kill_manager_with_held_state() {
    kill_manager();
    fs::remove_all("/run/tarvio/state.new");
    write_file(runtime::kStatePath, held_);
  }

 private:
  std::string held_;
};

TEST_F(ManagedRecovery, GoesOnWithWhatRuns) {
  install("clock", kStays);
  install("radio", kStays);
  install("web", kStays);
  start_manager({"--start-all"});
  EXPECT_TRUE(says("clock", kStarted) && says("radio", kStarted) && says("web", kStarted));
  EXPECT_EQ(stop("radio"), kDone);
  const pid_t clock = only_process_of("clock");
  ::kill(only_process_of("web"), SIGKILL);
  EXPECT_TRUE(says("web", "2\nended by signal 9 (Killed)\n"));
  const std::string statuses = request("status_all\n");
  const PublishedApp before = published("clock");
  kill_manager();
  EXPECT_TRUE(is_alive(clock));
  start_manager({"--start-all"});
  EXPECT_EQ(request("status_all\n"), statuses);
  EXPECT_EQ(only_process_of("clock"), clock);
  EXPECT_EQ(published("clock").starts, before.starts);
  EXPECT_EQ(published("radio").state, "stopped");
  EXPECT_EQ(published("web").state, "ended");
  EXPECT_EQ(manager_->errors(), "");
  EXPECT_EQ(stop("clock"), kDone);
  EXPECT_FALSE(is_alive(clock));
}

TEST_F(ManagedRecovery, FindsOutWhatHasEndedMeanwhile) {
  install("clock", kStays);
  install("radio", kStays);
  configure("radio", "restart: always\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(start("radio"), kDone);
  const pid_t clock = only_process_of("clock");
  const pid_t radio = only_process_of("radio");
  kill_manager();
  ::kill(clock, SIGKILL);
  ::kill(radio, SIGKILL);
  EXPECT_TRUE(ends(clock) && ends(radio));
  start_manager();
  EXPECT_TRUE(says("clock", "2\nended by signal 9 (Killed)\n"));
  EXPECT_EQ(published("clock").state, "ended");
  EXPECT_TRUE(says("radio", kStartedAgain));
  EXPECT_NE(only_process_of("radio"), radio);
}

TEST_F(ManagedRecovery, EndsThePauseOfARestart) {
  install("clock", "[ -e " + (directory_ / "stay").string() + " ] && exec sleep 600; exit 3");
  configure("clock", "restart: always\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_TRUE(becomes("clock", "restarting"));
  kill_manager();
  const int starts = published("clock").starts;
  write_file(directory_ / "stay", "");
  start_manager();
  EXPECT_TRUE(says("clock", kStartedAgain));
  EXPECT_EQ(published("clock").starts, starts + 1);
  (void)only_process_of("clock");
}

TEST_F(ManagedRecovery, FindsAStartThatWasNotPublished) {
  install("clock", kStays);
  start_manager();
  hold_state();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  kill_manager_with_held_state();
  EXPECT_EQ(published("clock").state, "stopped");
  start_manager();
  EXPECT_EQ(only_process_of("clock"), clock);
  EXPECT_EQ(status_of("clock"), kStarted);
  EXPECT_EQ(published("clock").state, "running");
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(only_process_of("clock"), clock);
}

TEST_F(ManagedRecovery, FindsAnEndWhoseStartWasNotPublished) {
  install("clock", "exit 3");
  install("radio", "[ -e " + (directory_ / "stay").string() + " ] && exec sleep 600; exit 3");
  configure("radio", "restart: on-failure\n");
  start_manager();
  hold_state();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(start("radio"), kDone);
  EXPECT_TRUE(says("clock", "2\nended with status 3\n"));
  kill_manager_with_held_state();
  write_file(directory_ / "stay", "");
  start_manager();
  EXPECT_TRUE(says("clock", "2\nended with status 3\n"));
  EXPECT_EQ(published("clock").starts, 1);
  // It may have been started again before the kill.
  EXPECT_TRUE(eventually([] { return status_of("radio").starts_with("0\nstarted"); }));
  (void)only_process_of("radio");
}

TEST_F(ManagedRecovery, FindsARestartThatWasNotPublished) {
  install("clock", kStays);
  configure("clock", "restart: always\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  ::kill(only_process_of("clock"), SIGKILL);
  EXPECT_TRUE(becomes("clock", "restarting"));
  hold_state();
  EXPECT_TRUE(says("clock", kStartedAgain));
  const pid_t clock = only_process_of("clock");
  kill_manager_with_held_state();
  EXPECT_EQ(published("clock").state, "restarting");
  start_manager();
  EXPECT_EQ(only_process_of("clock"), clock);
  EXPECT_EQ(status_of("clock"), kStartedAgain);
  EXPECT_EQ(published("clock").starts, 2);
}

TEST_F(ManagedRecovery, FindsAStopThatWasNotPublished) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  hold_state();
  EXPECT_EQ(stop("clock"), kDone);
  kill_manager_with_held_state();
  EXPECT_EQ(published("clock").state, "running");
  start_manager();
  EXPECT_EQ(status_of("clock"), "");
  EXPECT_EQ(published("clock").state, "stopped");
  EXPECT_TRUE(processes_of("clock").empty());
}

// A manager that is killed while it stops an application.
class ManagedRecoveryInAStop : public ManagedRecovery {
 protected:
  void SetUp() override {
    const std::string process = (directory_ / "process").string();
    install("clock", "echo $$ >" + process + "; " + kStays,
            "until [ -e " + (directory_ / "go").string() + " ]; do sleep 0.01; done; kill $(cat " +
                process + ")");
    start_manager();
    EXPECT_EQ(start("clock"), kDone);
    const Socket client = send_request("stop_exact\nclock\n");
    EXPECT_TRUE(eventually([] { return processes_of("clock").size() > 1; }));
    kill_manager();
  }
};

TEST_F(ManagedRecoveryInAStop, WaitsForNone) {
  start_manager();
  EXPECT_EQ(published("clock").state, "stopping");
  EXPECT_EQ(start("clock"), "16\n\n");
  write_file(directory_ / "go", "");
  EXPECT_TRUE(becomes("clock", "stopped"));
  EXPECT_EQ(status_of("clock"), "");
  EXPECT_TRUE(processes_of("clock").empty());
  EXPECT_EQ(start("clock"), kDone);
  (void)only_process_of("clock");
}

// To the library it runs, until the manager hears of the end.
TEST_F(ManagedRecoveryInAStop, SaysThatItIsNotStartedWhenTheStopEndsMeanwhile) {
  const std::string start_ends = directory_ / "start_ends";
  start_manager({}, with_module(TARVIOD_HELD_START, start_ends));
  EXPECT_EQ(published("clock").state, "stopping");
  const Socket client = send_request("start_exact\nclock\n");
  EXPECT_TRUE(eventually([&] { return std::filesystem::exists(start_ends + ".held"); }));
  write_file(directory_ / "go", "");
  EXPECT_TRUE(eventually([] { return processes_of("clock").empty(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the keeper hears of it
  write_file(start_ends, "");
  EXPECT_EQ(client.read_to_end(), "16\n\n");
  EXPECT_EQ(start("clock"), kDone);
  (void)only_process_of("clock");
}

TEST_F(ManagedRecovery, GoesOnAfterAnEndThatKeepsTheApplications) {
  install("clock", kStays);
  start_manager({"--keep-applications"});
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  manager_->send(SIGTERM);
  EXPECT_EQ(manager_->end(), 0);
  start_manager({"--start-all"});
  EXPECT_EQ(status_of("clock"), kStarted);
  EXPECT_EQ(only_process_of("clock"), clock);
  manager_->send(SIGTERM);
  EXPECT_EQ(manager_->end(), 0);
  EXPECT_FALSE(is_alive(clock));
}

TEST_F(ManagedRecovery, StopsWhatWasRemovedMeanwhile) {
  install("clock", kStays,
          ": >" + (directory_ / "stopped").string() + "; kill $(cat " +
              (directory_ / "process").string() + ")");
  write_program(information_file("clock", ".tqstartapp"),
                "#!/bin/sh\necho $$ >" + (directory_ / "process").string() + "\nexec sleep 600\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  // Its shell reads the start file, which goes away.
  EXPECT_TRUE(eventually([&] { return fs::exists(directory_ / "process"); }));
  kill_manager();
  uninstall("clock");
  start_manager();
  EXPECT_FALSE(is_alive(clock));
  EXPECT_TRUE(fs::exists(directory_ / "stopped"));
  EXPECT_THAT(manager_->errors(), HasSubstr("clock: stopped: its package was removed"));
  EXPECT_EQ(request("status_all\n"), "");
}

}  // namespace
}  // namespace tarvio_test
