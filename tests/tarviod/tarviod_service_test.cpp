// The service files of tarviod.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/files.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

const std::string kPackaging = TARVIO_SANDBOX_TOOLS "/../../packaging/";

// The init script, with a start-stop-daemon that finds a process as many times as the file "left"
// says, but none by the pid file when that manager has died, and notes what it is called with; and
// with a sleep that leaves a mark in place of waiting.
class InitScript : public testing::Test {
 protected:
  InitScript() {
    write_program(directory_ / "start-stop-daemon",
                  "#!/bin/sh\necho \"$*\" >>" + calls_ + "\n[ -e " + manager_ +
                      " ] || case $* in *' -p '*) exit 1 ;; esac\nread -r left <" + left_ +
                      "\n[ $left -gt 0 ] && echo $((left - 1)) >" + left_ + "\n");
    write_file(manager_, "");
    write_program(directory_ / "sleep", "#!/bin/sh\nprintf . >>" + sleeps_ + "\n");
    write_file(sleeps_, "");
  }
  // The exit status of `tarviod ACTION`.
  int act(const std::string& action, int signals_received) {
    write_file(left_, std::to_string(signals_received) + "\n");
    const std::string command = "PATH=" + directory_.path().string() + ":$PATH sh " + kPackaging +
                                "init.d/tarviod.in " + action + " 2>" + errors_;
    return WEXITSTATUS(std::system(command.c_str()));
  }
  int stop(int signals_received) { return act("stop", signals_received); }
  void manager_dies() { fs::remove(manager_); }
  std::string calls() const { return read_file(calls_); }
  size_t seconds_waited() const { return read_file(sleeps_).size(); }
  std::string errors() const { return read_file(errors_); }

 private:
  const TempDir directory_;
  const std::string left_ = directory_ / "left";
  const std::string manager_ = directory_ / "manager";
  const std::string calls_ = directory_ / "calls";
  const std::string sleeps_ = directory_ / "sleeps";
  const std::string errors_ = directory_ / "errors";
};

TEST_F(InitScript, WaitsAsLongAsTheManagerIsStopping) {
  EXPECT_EQ(stop(20), 0);
  EXPECT_EQ(seconds_waited(), 19U);
  EXPECT_EQ(errors(), "");
}

TEST_F(InitScript, AsksTheManagerAlone) {
  EXPECT_EQ(stop(1), 0);
  EXPECT_THAT(calls(), testing::StartsWith("-K -q -s TERM -p /run/tarviod.pid -x "));
  EXPECT_THAT(calls(), testing::Not(testing::HasSubstr("-s TERM -x ")));
}

TEST_F(InitScript, StopsWhatAManagerThatHasDiedLeaves) {
  manager_dies();
  EXPECT_EQ(stop(3), 0);
  EXPECT_THAT(calls(), testing::HasSubstr("\n-K -q -s TERM -x "));
  EXPECT_EQ(seconds_waited(), 2U);
}

TEST_F(InitScript, ReplacesTheManagerAlone) {
  act("replace", 2);
  EXPECT_THAT(calls(), testing::StartsWith("-K -q -s KILL -p /run/tarviod.pid -x "));
  EXPECT_THAT(calls(), testing::Not(testing::HasSubstr("-s KILL -x ")));
  EXPECT_EQ(seconds_waited(), 2U);
}

TEST_F(InitScript, WaitsLongerThanTheManagerDoesForEachPackage) {
  for (int package = 0; package < 100; ++package)
    install_package("p" + std::to_string(package), "Application");
  EXPECT_EQ(stop(10'000), 1);
  EXPECT_GT(seconds_waited(), 30U + 15 * 100);
  EXPECT_LT(seconds_waited(), 30U + 15 * 100 + 150);
  EXPECT_EQ(errors(), "tarviod does not stop\n");
}

// Its manager ends the wait itself, after a time that depends on the applications.
TEST(SystemdService, SetsNoLimitToTheStop) {
  EXPECT_THAT(read_file(kPackaging + "systemd/tarviod.service.in"),
              testing::HasSubstr("\nTimeoutStopSec=infinity\n"));
}

// Killing the control group would end the applications that the next manager is to find.
TEST(SystemdService, SignalsTheManagerAlone) {
  EXPECT_THAT(read_file(kPackaging + "systemd/tarviod.service.in"),
              testing::HasSubstr("\nKillMode=process\n"));
}

TEST(SystemdService, WaitsForTheReportsOfTheManager) {
  const std::string service = read_file(kPackaging + "systemd/tarviod.service.in");
  EXPECT_THAT(service, testing::HasSubstr("\nType=notify\n"));
  EXPECT_THAT(service, testing::HasSubstr("\nWatchdogSec="));
}

// The shell has kill built in; the program is of a package that small systems leave out.
TEST(SystemdService, ReloadsWithNothingButAShell) {
  const std::string service = read_file(kPackaging + "systemd/tarviod.service.in");
  const size_t begin = service.find("ExecReload=") + 11;
  std::string command = service.substr(begin, service.find('\n', begin) - begin);
  EXPECT_THAT(command, testing::StartsWith("/bin/sh -c "));

  const pid_t manager = ::fork();
  if (manager == 0) {
    ::signal(SIGHUP, SIG_DFL);
    while (true) ::pause();
  }
  const std::string variable = "${MAINPID}";
  const size_t place = command.find(variable);
  ASSERT_NE(place, std::string::npos);
  command.replace(place, variable.size(), std::to_string(manager));
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  const int end = end_of(manager);
  EXPECT_TRUE(WIFSIGNALED(end) && WTERMSIG(end) == SIGHUP) << end;
}

// Each setting of the drop-in says which applications cannot work with it.
TEST(SystemdService, ExplainsEachSettingOfTheDropIn) {
  std::istringstream lines(read_file(kPackaging + "systemd/hardening.conf"));
  std::string before;
  int settings = 0;
  for (std::string line; std::getline(lines, line); before = line) {
    if (line.empty() || line.front() == '#' || line.front() == '[') continue;
    ++settings;
    EXPECT_THAT(before,
                testing::AnyOf(testing::StartsWith("# "), testing::StartsWith("SystemCall")))
        << line;
  }
  EXPECT_GT(settings, 5);
}

// What a shell prints.
std::string output_of(const std::string& shell, const std::string& script) {
  FILE* const output = ::popen((shell + " -c '" + script + "'").c_str(), "re");
  std::string text;
  for (int byte = 0; (byte = std::fgetc(output)) != EOF;) text += static_cast<char>(byte);
  EXPECT_EQ(::pclose(output), 0) << script;
  return text;
}

// The words after the name of the program, and a check of the configuration in place of a start.
void expect_accepted(std::istringstream words) {
  std::vector<std::string> arguments(std::istream_iterator<std::string>(words), {});
  ASSERT_FALSE(arguments.empty());
  EXPECT_THAT(arguments.front(), testing::EndsWith("/tarviod"));
  arguments.front() = "--check-config";
  EXPECT_THAT(arguments, testing::Contains("--start-all"));
  EXPECT_THAT(arguments, testing::IsSupersetOf({"--output", "syslog"}));
  const Ended run = run_tarviod(arguments);
  EXPECT_EQ(run.status, 0) << run.errors;
}

TEST(SystemdService, StartsTheManagerWithOptionsThatItHas) {
  const std::string service = read_file(kPackaging + "systemd/tarviod.service.in");
  const size_t begin = service.find("ExecStart=") + 10;
  expect_accepted(std::istringstream(service.substr(begin, service.find('\n', begin) - begin)));
}

TEST(OpenrcService, StartsTheManagerWithOptionsThatItHas) {
  expect_accepted(std::istringstream(output_of(
      "busybox sh", ". " + kPackaging + "openrc/tarviod.in; echo $command $command_args")));
}

TEST(ProcdService, StartsTheManagerWithOptionsThatItHas) {
  expect_accepted(std::istringstream(output_of(
      "busybox sh", ". " + kPackaging +
                        "procd/tarviod.in; procd_open_instance() { :; }; procd_close_instance() "
                        "{ :; }; procd_set_param() { case $1 in command) shift; echo \"$@\";; "
                        "esac; }; start_service")));
}

// The process of a line of the inittab, as init gives it to a shell.
std::string inittab_process(const std::string& action) {
  const std::string lines = read_file(kPackaging + "busybox/inittab");
  const std::string head = "\n::" + action + ":";
  const size_t begin = lines.find(head) + head.size();
  return lines.substr(begin, lines.find('\n', begin) - begin);
}

TEST(BusyboxService, StartsTheManagerWithOptionsThatItHas) {
  expect_accepted(std::istringstream(inittab_process("respawn")));
}

TEST(BusyboxService, WaitsForTheEndOfTheManagerAtTheShutdown) {
  EXPECT_EQ(run_tarviod({"--daemon", "--pid-file", "/run/tarviod.pid"}).status, 0);
  const pid_t manager = std::stoi(read_file("/run/tarviod.pid"));
  const std::string process = "exec " + inittab_process("shutdown");
  EXPECT_LT(process.size(), 256U);  // all that init has room for
  const pid_t shell = ::fork();
  if (shell == 0) {
    ::execlp("busybox", "sh", "-c", process.c_str(), nullptr);
    ::_exit(127);
  }
  (void)end_of(shell);
  EXPECT_FALSE(is_alive(manager));
  EXPECT_FALSE(fs::exists("/run/tarviod.pid"));
}

}  // namespace
}  // namespace tarvio_test
