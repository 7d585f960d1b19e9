// The settings of applications, as the manager runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "managed.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/users.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;

using ManagedSettings = Managed;

TEST_F(ManagedSettings, WithAMistakeKeepItFromStarting) {
  install("clock", kStays);
  install("radio", kStays);
  configure("clock", "restart: sometimes\n");
  start_manager();
  EXPECT_EQ(start("clock"), "125\n\n");
  EXPECT_EQ(status_of("clock"), "2\ncannot be started: its settings have a mistake\n");
  EXPECT_EQ(published("clock").state, "stopped");
  EXPECT_THAT(manager_->errors(), HasSubstr("/etc/tarvio/apps.d/clock.conf:1: "));
  EXPECT_EQ(request("start_all\n"), "125\n\n");
  EXPECT_EQ(status_of("radio"), kStarted);
  EXPECT_EQ(status_of("clock"), "2\ncannot be started: its settings have a mistake\n");
  configure("clock", "restart: no\n");
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(status_of("clock"), kStarted);
}

TEST_F(ManagedSettings, WithAMistakeLeaveTheOthersAtBoot) {
  install("clock", kStays);
  install("radio", kStays);
  configure("clock", "restart: sometimes\n");
  start_manager({"--start-all"});
  EXPECT_TRUE(says("radio", kStarted));
  (void)only_process_of("radio");
  EXPECT_TRUE(processes_of("clock").empty());
}

TEST_F(ManagedSettings, LeaveAnApplicationOutAtBootAlone) {
  install("clock", kStays);
  install("radio", kStays);
  configure("radio", "enabled: no\n");
  start_manager({"--start-all"});
  EXPECT_TRUE(says("clock", kStarted));
  EXPECT_EQ(status_of("radio"), "");
  EXPECT_EQ(request("start_all\n"), kDone);
  EXPECT_EQ(status_of("radio"), kStarted);
}

TEST_F(ManagedSettings, SetTheOrderAtBoot) {
  for (const char* name : {"a", "b", "c", "d"}) install(name, kStays);
  configure("a", "after: d\n");
  configure("d", "after: b\n");
  configure("b", "after: c\n");
  start_manager({"--start-all"});
  EXPECT_TRUE(becomes("a", "running"));
  EXPECT_LT(published("c").pid, published("b").pid);
  EXPECT_LT(published("b").pid, published("d").pid);
  EXPECT_LT(published("d").pid, published("a").pid);
}

TEST_F(ManagedSettings, InACircleAreReportedAndAllAreStarted) {
  for (const char* name : {"a", "b"}) install(name, kStays);
  configure("a", "after: b\n");
  configure("b", "after: a\n");
  const Ended check = run_tarviod({"--check-config"});
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.errors, HasSubstr("leads back to this application"));
  start_manager({"--start-all"});
  EXPECT_TRUE(becomes("a", "running") && becomes("b", "running"));
  EXPECT_THAT(manager_->errors(), HasSubstr("leads back to this application"));
}

TEST_F(ManagedSettings, ReachTheProcess) {
  if (!has_other_users()) GTEST_SKIP() << "there is no other user in this sandbox";
  install("clock", kStays);
  // AddressSanitizer, which the process has until it is executed, needs more memory.
  configure("clock",
            "user: nobody\nnice: 5\nmax_open_files: 77\nmax_memory: 64000G\nmax_processes: 1000\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t process = only_process_of("clock");
  EXPECT_THAT(read_file("/proc/" + std::to_string(process) + "/status"),
              HasSubstr("\nUid:\t65534\t65534\t65534\t65534\n"));
  EXPECT_EQ(::getpriority(PRIO_PROCESS, static_cast<id_t>(process)), 5);
  const std::string limits = read_file("/proc/" + std::to_string(process) + "/limits");
  EXPECT_THAT(limits, ContainsRegex("Max open files +77 +77 "));
  EXPECT_THAT(limits, ContainsRegex("Max address space +68719476736000 +68719476736000 "));
  EXPECT_THAT(limits, ContainsRegex("Max processes +1000 +1000 "));
}

TEST_F(ManagedSettings, InAPipeAreRefused) {
  install("clock", kStays);
  configure("clock", "");
  fs::remove("/etc/tarvio/apps.d/clock.conf");
  ASSERT_EQ(::mkfifo("/etc/tarvio/apps.d/clock.conf", 0600), 0);
  start_manager();
  EXPECT_EQ(start("clock"), "125\n\n");
  EXPECT_EQ(manager_->errors(), "tarviod: /etc/tarvio/apps.d/clock.conf: is a pipe: name a file\n");
}

TEST_F(ManagedSettings, EndAStopThatTakesTooLong) {
  install("clock", "trap '' TERM; while :; do sleep 600; done", "exec sleep 600");
  configure("clock", "stop_timeout: 0\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(stop("clock"), kDone);
  EXPECT_TRUE(processes_of("clock").empty());
  EXPECT_EQ(published("clock").state, "stopped");
}

}  // namespace
}  // namespace tarvio_test
