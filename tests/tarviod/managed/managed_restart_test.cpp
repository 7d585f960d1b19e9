// What becomes of an application that ends by itself.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "managed.h"
#include "support/apps/applications.h"
#include "support/children.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

class ManagedRestart : public Managed {
 protected:
  // A start file that ends as `ends` says, and stays from its third start on.
  void install_failing(const std::string& ends) const {
    const std::string count = directory_ / "count";
    install("clock",
            "echo >>" + count + "; [ $(wc -l <" + count + ") -gt 2 ] && exec sleep 600\n" + ends);
  }
};

TEST_F(ManagedRestart, IsNotDoneUnlessAskedFor) {
  install("clock", "exit 3");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_TRUE(says("clock", "2\nended with status 3\n"));
  const PublishedApp app = published("clock");
  EXPECT_EQ(app.state, "ended");
  EXPECT_EQ(app.exit, "status 3");
  EXPECT_EQ(app.pid, 0);
  EXPECT_EQ(app.starts, 1);
}

TEST_F(ManagedRestart, IsNotDoneAfterAnEndWithoutFailure) {
  install("clock", "exit 0");
  configure("clock", "restart: on-failure\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_TRUE(says("clock", "0\nended with status 0\n"));
  EXPECT_EQ(published("clock").state, "ended");
}

TEST_F(ManagedRestart, FollowsAStatus) {
  install_failing("exit 3");
  configure("clock", "restart: on-failure\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_TRUE(eventually([] { return published("clock").starts == 3; }));
  EXPECT_TRUE(says("clock", kStartedAgain));
  (void)only_process_of("clock");
  EXPECT_EQ(published("clock").exit, "status 3");  // of the run before
}

TEST_F(ManagedRestart, FollowsASignal) {
  install("clock", kStays);
  configure("clock", "restart: on-failure\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t before = only_process_of("clock");
  ::kill(before, SIGKILL);
  EXPECT_TRUE(says("clock", kStartedAgain));
  EXPECT_NE(only_process_of("clock"), before);
  EXPECT_EQ(published("clock").exit, "signal 9");
}

TEST_F(ManagedRestart, AlwaysFollowsAnEnd) {
  install_failing("exit 0");
  configure("clock", "restart: always\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_TRUE(eventually([] { return published("clock").starts == 3; }));
  (void)only_process_of("clock");
}

TEST_F(ManagedRestart, EndsAfterFiveInAMinute) {
  install("clock", "exit 3");
  configure("clock", "restart: always\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_TRUE(says("clock", "2\nended with status 3, 6 times within 60 s\n"));
  EXPECT_EQ(published("clock").state, "ended");
  EXPECT_EQ(published("clock").starts, 6);
  // A start counts from the beginning.
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_TRUE(eventually([] { return published("clock").starts == 8; }));
}

TEST_F(ManagedRestart, IsAnnouncedAndTakenBackByAStop) {
  install("clock", "echo >>" + (directory_ / "starts").string() + "; exit 3");
  configure("clock", "restart: always\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  // The third pause is a second long.
  EXPECT_TRUE(eventually(
      [] { return published("clock").starts == 3 && published("clock").state == "restarting"; }));
  EXPECT_EQ(status_of("clock"), "1\nended with status 3, starting it again\n");
  EXPECT_EQ(stop("clock"), kDone);
  EXPECT_EQ(published("clock").state, "stopped");
  EXPECT_EQ(status_of("clock"), "");
  // Another application's restart shows that the time has passed.
  install("radio", "exit 3");
  configure("radio", "restart: always\n");
  EXPECT_EQ(request("refresh_apps\n"), "0\nadded 1\nremoved 0\nchanged 0\n");
  EXPECT_EQ(start("radio"), kDone);
  EXPECT_TRUE(eventually([] { return published("radio").starts == 4; }));
  EXPECT_EQ(published("clock").starts, 3);
  EXPECT_EQ(read_file(directory_ / "starts"), "\n\n\n");
}

TEST_F(ManagedRestart, LeavesAnEndedApplicationToAStart) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t before = only_process_of("clock");
  ::kill(before, SIGTERM);
  EXPECT_TRUE(says("clock", "2\nended by signal 15 (Terminated)\n"));
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(status_of("clock"), kStarted);
  EXPECT_EQ(published("clock").pid, only_process_of("clock"));
  EXPECT_EQ(published("clock").starts, 2);
}

TEST_F(ManagedRestart, WaitsForTheLastProcessOfAnApplicationThatForks) {
  install("clock", "sleep 600 & exit 0");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  pid_t process = -1;
  EXPECT_TRUE(eventually([&] {
    process = only_process_of("clock");
    // It may be the shell, which ends.
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string program;
    return std::getline(file, program) && program == "sleep";
  }));
  EXPECT_EQ(published("clock").state, "running");
  EXPECT_EQ(status_of("clock"), kStarted);
  ::kill(process, SIGKILL);
  EXPECT_TRUE(says("clock", "2\nended by signal 9 (Killed)\n"));
}

TEST_F(ManagedRestart, IsPossibleAfterAStopFileThatCannotRun) {
  install("clock", kStays, "exit 0");
  fs::permissions(information_file("clock", ".tqstopapp"), fs::perms::owner_read);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t before = only_process_of("clock");
  EXPECT_EQ(stop("clock"), kDone);
  EXPECT_FALSE(is_alive(before));
  EXPECT_EQ(manager_->errors(),
            "tarviod: clock: cannot run its stop file: Permission denied: sent SIGTERM\n");
  EXPECT_EQ(start("clock"), kDone);
}

TEST_F(ManagedRestart, IsNotTriedWithAStartFileThatCannotRun) {
  install("clock", kStays);
  fs::permissions(information_file("clock", ".tqstartapp"), fs::perms::owner_read);
  start_manager();
  EXPECT_EQ(start("clock"), "13\n\n");
  EXPECT_EQ(status_of("clock"), "2\ncannot run its start file: Permission denied\n");
  EXPECT_EQ(published("clock").exit, "not-run 13");
  fs::permissions(information_file("clock", ".tqstartapp"), fs::perms::owner_all);
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(status_of("clock"), kStarted);
}

}  // namespace
}  // namespace tarvio_test
