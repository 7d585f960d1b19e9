// Applications that are installed, upgraded and removed while the manager runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "managed.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/programs/supervisor.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

using ManagedRefresh = Managed;

constexpr char kRefresh[] = "refresh_apps\n";

TEST_F(ManagedRefresh, FindsANewApplication) {
  start_manager();
  install("clock", kStays);
  EXPECT_EQ(start("clock"), "22\n\n");
  EXPECT_EQ(request(kRefresh), "0\nadded 1\nremoved 0\nchanged 0\n");
  EXPECT_EQ(published("clock").state, "stopped");
  EXPECT_EQ(status_of("clock"), "");
  EXPECT_EQ(start("clock"), kDone);
  (void)only_process_of("clock");
}

TEST_F(ManagedRefresh, FollowsASignal) {
  start_manager();
  install("clock", kStays);
  manager_->send(SIGHUP);
  EXPECT_TRUE(becomes("clock", "stopped"));
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_THAT(manager_->output(), HasSubstr("applications: 1 added, 0 removed, 0 changed"));
}

TEST_F(ManagedRefresh, StopsWhatIsGoneWithItsKeptStopFile) {
  const std::string process = directory_ / "process";
  install("clock", "echo $$ >" + process + "; " + kStays,
          ": >" + (directory_ / "stopped").string() + "; kill $(cat " + process + ")");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  EXPECT_TRUE(eventually([&] { return fs::exists(process); }));
  uninstall("clock");
  EXPECT_EQ(request(kRefresh), "0\nadded 0\nremoved 1\nchanged 0\n");
  EXPECT_FALSE(is_alive(clock));
  EXPECT_TRUE(fs::exists(directory_ / "stopped"));
  EXPECT_EQ(published("clock").state, "");
  EXPECT_EQ(request("status_all\n"), "");
}

TEST_F(ManagedRefresh, TakesBackTheRestartOfWhatIsGone) {
  install("clock", "exit 3");
  configure("clock", "restart: always\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_TRUE(becomes("clock", "restarting"));
  uninstall("clock");
  EXPECT_EQ(request(kRefresh), "0\nadded 0\nremoved 1\nchanged 0\n");
  EXPECT_EQ(request("status_all\n"), "");
  EXPECT_TRUE(processes_of("clock").empty());
}

TEST_F(ManagedRefresh, LeavesWhatWasUpgradedUntilItIsRestarted) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t clock = only_process_of("clock");
  upgrade("clock", "2.0");
  EXPECT_EQ(request(kRefresh), "0\nadded 0\nremoved 0\nchanged 1\n");
  EXPECT_EQ(only_process_of("clock"), clock);
  EXPECT_EQ(status_of("clock"), kStarted);
  EXPECT_EQ(published("clock").installed, "2.0");
  EXPECT_EQ(published("clock").running, "1.0");
  EXPECT_EQ(stop("clock"), kDone);
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(published("clock").running, "2.0");
}

TEST_F(ManagedRefresh, ShowsBothVersionsAfterAManagerThatWasKilled) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  kill_manager();
  upgrade("clock", "2.0");
  start_manager();
  EXPECT_EQ(published("clock").installed, "2.0");
  EXPECT_EQ(published("clock").running, "1.0");
}

TEST_F(ManagedRefresh, EndsAReload) {
  const std::string go = directory_ / "go";
  install("clock", kStays,
          ": >" + (directory_ / "stopping").string() + "; while [ ! -e " + go +
              " ]; do sleep 0.1; done");
  const Supervisor supervisor;
  start_manager({}, supervisor.environment());
  EXPECT_EQ(start("clock"), kDone);
  while (supervisor.next() != "READY=1") continue;
  const Socket client = connect_to(TQ_COM_SOCKET_PATH);
  client.send("stop_app\nclock\n");
  client.end_sending();
  EXPECT_TRUE(eventually([this] { return fs::exists(directory_ / "stopping"); }));
  manager_->send(SIGHUP);
  EXPECT_THAT(supervisor.next(), HasSubstr("RELOADING=1"));
  EXPECT_EQ(supervisor.next_if_any(), "");
  install("radio", kStays);
  write_file(go, "");
  EXPECT_EQ(supervisor.next(), "STATUS=2 applications installed");
  EXPECT_EQ(supervisor.next(), "READY=1");
}

}  // namespace
}  // namespace tarvio_test
