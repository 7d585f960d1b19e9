// The settings of applications, as the manager runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>

#include "managed.h"
#include "support/apps/applications.h"
#include "support/children.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;

class ManagedSettings : public Managed {
 protected:
  // A start file that says its name once.
  std::string says_name(const std::string& name) const {
    return "echo " + name + " >>" + (directory_ / "order").string() + "\n" + kStays;
  }
  // The lines of the start files, once there are as many as there should be.
  std::string order(size_t size) const {
    const fs::path file = directory_ / "order";
    EXPECT_TRUE(eventually([&] { return fs::exists(file) && fs::file_size(file) >= size; }));
    return read_file(file);
  }
};

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
  for (const char* name : {"a", "b", "c", "d"}) install(name, says_name(name));
  configure("a", "after: d\n");
  configure("d", "after: b\n");
  configure("b", "after: c\n");
  start_manager({"--start-all"});
  EXPECT_EQ(order(8), "c\nb\nd\na\n");
}

TEST_F(ManagedSettings, InACircleAreReportedAndAllAreStarted) {
  for (const char* name : {"a", "b"}) install(name, says_name(name));
  configure("a", "after: b\n");
  configure("b", "after: a\n");
  const Ended check = run_tarviod({"--check-config"});
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.errors, HasSubstr("leads back to this application"));
  start_manager({"--start-all"});
  EXPECT_EQ(order(4).size(), 4U);
  EXPECT_THAT(manager_->errors(), HasSubstr("leads back to this application"));
}

TEST_F(ManagedSettings, ReachTheProcess) {
  install("clock", kStays);
  configure("clock",
            "user: nobody\nnice: 5\nmax_open_files: 77\nmax_memory: 512M\nmax_processes: 1000\n");
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const pid_t process = only_process_of("clock");
  EXPECT_THAT(read_file("/proc/" + std::to_string(process) + "/status"),
              HasSubstr("\nUid:\t65534\t65534\t65534\t65534\n"));
  EXPECT_EQ(::getpriority(PRIO_PROCESS, static_cast<id_t>(process)), 5);
  const std::string limits = read_file("/proc/" + std::to_string(process) + "/limits");
  EXPECT_THAT(limits, ContainsRegex("Max open files +77 +77 "));
  EXPECT_THAT(limits, ContainsRegex("Max address space +536870912 +536870912 "));
  EXPECT_THAT(limits, ContainsRegex("Max processes +1000 +1000 "));
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
