// What tarviod does for the supervisor that started it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/supervisor.h"
#include "support/programs/tarviod.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

constexpr char kStopping[] = "STOPPING=1\nSTATUS=stopping the applications";

TEST(TarviodSupervisor, HearsOfTheWholeLife) {
  install_application("clock");
  write_file("/etc/tarvio/tarviod.conf", "");
  const Supervisor supervisor;
  Tarviod manager({}, supervisor.environment());
  EXPECT_EQ(supervisor.next(), "STATUS=1 application installed");
  EXPECT_EQ(supervisor.next(), "READY=1");
  EXPECT_TRUE(manager.answers());
  manager.send(SIGHUP);
  EXPECT_THAT(supervisor.next(), MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[1-9][0-9]*"));
  EXPECT_EQ(supervisor.next(), "STATUS=1 application installed");
  EXPECT_EQ(supervisor.next(), "READY=1");
  manager.send(SIGTERM);
  EXPECT_EQ(supervisor.next(), kStopping);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_EQ(supervisor.next_if_any(), "");
}

TEST(TarviodSupervisor, HearsNothingOfStopsThatAreNotMeant) {
  const Supervisor supervisor;
  Tarviod manager({"--keep-applications"}, supervisor.environment());
  while (supervisor.next() != "READY=1") continue;
  manager.send(SIGTERM);
  EXPECT_EQ(supervisor.next(), "STOPPING=1");
  EXPECT_EQ(manager.end(), 0);
}

TEST(TarviodSupervisor, MayHaveAnAbstractSocket) {
  const Supervisor supervisor("@tarvio-test-" + std::to_string(::getpid()));
  Tarviod manager({}, supervisor.environment());
  EXPECT_EQ(supervisor.next(), "STATUS=0 applications installed");
  EXPECT_EQ(supervisor.next(), "READY=1");
}

TEST(TarviodSupervisor, HearsThatAReloadWithAMistakeHasEnded) {
  const Supervisor supervisor;
  Tarviod manager({}, supervisor.environment());
  ASSERT_TRUE(manager.answers());
  write_file("/etc/tarvio/tarviod.conf", "nonsense\n");
  manager.send(SIGHUP);
  while (supervisor.next().find("RELOADING=1") != 0) continue;
  EXPECT_EQ(supervisor.next(), "STATUS=0 applications installed");
  EXPECT_EQ(supervisor.next(), "READY=1");
}

TEST(TarviodSupervisor, HearsNothingFromAManagerThatDoesNotStart) {
  const Supervisor supervisor;
  write_file("/etc/tarvio/tarviod.conf", "nonsense\n");
  EXPECT_EQ(run_tarviod({}, supervisor.environment()).status, 1);
  EXPECT_EQ(supervisor.next_if_any(), "");
}

TEST(TarviodSupervisor, MayBeGone) {
  for (const char* name : {"/nowhere/notify", "@nobody", "vsock:2:1", ""}) {
    Tarviod manager({}, [name] { ::setenv("NOTIFY_SOCKET", name, 1); });
    ASSERT_TRUE(manager.answers()) << name;
    EXPECT_EQ(manager.errors(), "") << name;
    manager.send(SIGTERM);
    EXPECT_EQ(manager.end(), 0) << name;
  }
}

TEST(TarviodSupervisor, DoesNotHearFromApplications) {
  install_application("clock");
  const Supervisor supervisor;
  Tarviod manager({"--start-all"}, [&] {
    supervisor.environment()();
    ::setenv("WATCHDOG_USEC", "1000000000", 1);
    ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
    ::setenv("OTHER", "stays", 1);
  });
  ASSERT_TRUE(manager.answers());
  const std::string environment =
      read_file("/proc/" + std::to_string(process_of("clock")) + "/environ");
  EXPECT_THAT(environment, HasSubstr("OTHER=stays"));
  EXPECT_THAT(environment, Not(HasSubstr("NOTIFY_SOCKET")));
  EXPECT_THAT(environment, Not(HasSubstr("WATCHDOG")));
}

TEST(TarviodSupervisor, HearsFromTheWatchdog) {
  const Supervisor supervisor;
  Tarviod manager({}, [&] {
    supervisor.environment()();
    ::setenv("WATCHDOG_USEC", "100000", 1);
  });
  ASSERT_TRUE(manager.answers());
  for (int fed = 0; fed < 3;) fed += supervisor.next() == "WATCHDOG=1" ? 1 : 0;
  manager.send(SIGTERM);
  while (supervisor.next() != kStopping) continue;
  EXPECT_EQ(manager.end(), 0);
}

class PidFile : public testing::Test {
 protected:
  const TempDir directory_;
  const std::string path_ = directory_ / "tarviod.pid";
};

TEST_F(PidFile, IsThereUntilTheOrderlyEnd) {
  write_file(path_, "1234567 and more\n");  // of a manager that was killed
  Tarviod manager({"--pid-file", path_});
  ASSERT_TRUE(eventually([&] { return read_file(path_) == std::to_string(manager.pid()) + "\n"; }));
  EXPECT_TRUE(manager.answers());
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_TRUE(fs::is_empty(directory_.path() / ""));
}

TEST_F(PidFile, HoldsTheProcessInTheBackground) {
  const fs::path before = fs::current_path();
  fs::current_path(directory_.path());
  EXPECT_EQ(run_tarviod({"--daemon", "--pid-file", "tarviod.pid"}).status, 0);
  fs::current_path(before);
  const pid_t manager = listening_process();
  EXPECT_EQ(read_file(path_), std::to_string(manager) + "\n");
  ::kill(manager, SIGTERM);
  EXPECT_TRUE(ends(manager));
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(PidFile, StaysWhenAnotherManagerIsRefused) {
  Tarviod manager({"--pid-file", path_});
  ASSERT_TRUE(manager.answers());
  ASSERT_TRUE(eventually([&] { return fs::exists(path_); }));
  EXPECT_EQ(run_tarviod({"--pid-file", path_}).status, 1);
  EXPECT_EQ(read_file(path_), std::to_string(manager.pid()) + "\n");
}

TEST_F(PidFile, KeepsTheManagerFromStartingWhenItCannotBeWritten) {
  const std::string path = path_ + "/nowhere";
  const Ended run = run_tarviod({"--pid-file", path});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: " + path +
                            ": No such file or directory: name a file in a directory that can be "
                            "written to\n");
  EXPECT_FALSE(fs::exists(TQ_COM_SOCKET_PATH));
  EXPECT_FALSE(fs::exists("/run/tarvio/state"));
}

}  // namespace
}  // namespace tarvio_test
