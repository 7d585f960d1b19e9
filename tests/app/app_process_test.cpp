#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/apps/app_manager.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/no_sleep.h"
#include "support/packages/package_listing.h"
#include "tarvio/app.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

// An application record for the Linux binding, without a manager.
class LinuxApplication : public testing::Test {
 protected:
  LinuxApplication() {
    package_.start_app = start_app_;
    package_.stop_app = stop_app_;
  }
  ~LinuxApplication() override { std::free(app_.pid); }

  void end_process() const {
    ::kill(*app_.pid, SIGKILL);
    end_of(*app_.pid);
  }

  char start_app_[16] = "sleep 600";
  char stop_app_[16] = "";
  tq_package_info package_ = {};
  tq_app_info app_ = {nullptr, &package_, 1, nullptr};
  const NoSleep no_sleep_;
};

TEST_F(LinuxApplication, IsStartedAsAChild) {
  EXPECT_EQ(tq_start_linux_app(&app_), 0);
  EXPECT_EQ(app_.stopped, 0);
  ASSERT_NE(app_.pid, nullptr);
  EXPECT_EQ(::waitpid(*app_.pid, nullptr, WNOHANG), 0);
  const std::string program = "/proc/" + std::to_string(*app_.pid) + "/comm";
  EXPECT_TRUE(eventually([&] { return read_file(program) == "sleep\n"; }));
  end_process();
}

TEST_F(LinuxApplication, HasItsLatestProcess) {
  tq_start_linux_app(&app_);
  end_process();
  const int first = *app_.pid;
  EXPECT_EQ(tq_start_linux_app(&app_), 0);
  EXPECT_NE(*app_.pid, first);
  end_process();
}

TEST_F(LinuxApplication, ThatGetsNoPipeStaysStopped) {
  const Hook pipe("pipe", [](int*) {
    errno = EMFILE;
    return -1;
  });
  EXPECT_EQ(tq_start_linux_app(&app_), EMFILE);
  EXPECT_EQ(app_.stopped, 1);
  EXPECT_EQ(app_.pid, nullptr);
}

TEST_F(LinuxApplication, ThatCannotBeForkedCountsAsStarted) {
  const Hook fork("fork", []() -> pid_t {
    errno = EAGAIN;
    return -1;
  });
  EXPECT_EQ(tq_start_linux_app(&app_), 0);
  EXPECT_EQ(app_.stopped, 0);
  EXPECT_EQ(*app_.pid, -1);
}

TEST_F(LinuxApplication, WithoutMemoryIsNotStarted) {
  const FailAlloc fail(1);
  EXPECT_EQ(tq_start_linux_app(&app_), ENOMEM);
  EXPECT_EQ(app_.stopped, 1);
  EXPECT_EQ(app_.pid, nullptr);
}

TEST_F(LinuxApplication, WithoutAProcessIsOnlyMarkedAsStopped) {
  int forks = 0;
  const Hook fork("fork", [&]() -> pid_t {
    ++forks;
    return -1;
  });
  app_.stopped = 0;
  EXPECT_EQ(tq_stop_linux_app(&app_), 0);
  EXPECT_EQ(app_.stopped, 1);
  EXPECT_EQ(forks, 0);
  EXPECT_THAT(no_sleep_.naps(), IsEmpty());
}

// The stop file's path is passed although it is empty, so no signal is sent (oddity 97).
TEST_F(LinuxApplication, WithoutAStopFileGoesOn) {
  int signals = 0;
  const Hook killpg("killpg", [&](pid_t, int) {
    ++signals;
    return 0;
  });
  tq_start_linux_app(&app_);
  const pid_t process = *app_.pid;
  EXPECT_EQ(tq_stop_linux_app(&app_), 0);
  EXPECT_EQ(app_.stopped, 1);
  EXPECT_EQ(app_.pid, nullptr);
  EXPECT_EQ(signals, 0);
  EXPECT_THAT(no_sleep_.naps(), ElementsAre(1U));
  EXPECT_EQ(::waitpid(process, nullptr, WNOHANG), 0);
  ::kill(process, SIGKILL);
  end_of(process);
}

TEST_F(LinuxApplication, WithoutAStopFileAtAllGetsSigterm) {
  std::vector<std::pair<pid_t, int>> signals;
  const Hook killpg("killpg", [&](pid_t group, int signal) {
    signals.emplace_back(group, signal);
    return 0;
  });
  tq_start_linux_app(&app_);
  const pid_t process = *app_.pid;
  package_.stop_app = nullptr;
  EXPECT_EQ(tq_stop_linux_app(&app_), 0);
  EXPECT_THAT(signals, ElementsAre(testing::Pair(process, SIGTERM)));
  ::kill(process, SIGKILL);
  end_of(process);
}

TEST_F(LinuxApplication, MayNotBeNull) {
  EXPECT_EQ(tq_start_linux_app(nullptr), EINVAL);
  EXPECT_EQ(tq_stop_linux_app(nullptr), EINVAL);
}

// The manager with applications that are installed, run and end.
class RunningApplications : public testing::Test {
 protected:
  RunningApplications() {
    tq_setup_status_manager();
    tq_setup_package_manager();
  }

  // All children have ended, and none is a zombie.
  static bool no_child_is_left() {
    return eventually([] { return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; });
  }

  const LogCapture log_;
  const NoSleep no_sleep_;
};

TEST_F(RunningApplications, AreStartedAndStoppedOneByOne) {
  install_application("clock");
  install_application("web");
  ASSERT_EQ(tq_setup_app_manager(), 1);
  EXPECT_EQ(tq_start_app("clock"), 0);
  EXPECT_EQ(tq_start_app("web"), 0);
  const pid_t clock = process_of("clock");
  const pid_t web = process_of("web");
  EXPECT_TRUE(is_alive(clock));
  EXPECT_THAT(all_statuses(), ElementsAre("clock 0 started app", "web 0 started app"));

  EXPECT_EQ(tq_stop_app("clock"), 0);
  EXPECT_TRUE(ends(clock));
  EXPECT_TRUE(is_alive(web));
  EXPECT_THAT(all_statuses(), ElementsAre("web 0 started app"));
  EXPECT_EQ(tq_stop_app("web"), 0);
  EXPECT_TRUE(ends(web));
  EXPECT_THAT(all_statuses(), IsEmpty());
  EXPECT_TRUE(no_child_is_left());
}

TEST_F(RunningApplications, AreStartedAndStoppedTogether) {
  install_application("clock");
  install_application("web");
  ASSERT_EQ(tq_setup_app_manager(), 1);
  EXPECT_EQ(tq_start_all_app(), 0);
  const pid_t clock = process_of("clock");
  const pid_t web = process_of("web");
  EXPECT_THAT(all_statuses(), ElementsAre("web 0 started app", "clock 0 started app"));
  EXPECT_EQ(tq_stop_all_app(), 0);
  EXPECT_TRUE(ends(clock));
  EXPECT_TRUE(ends(web));
  EXPECT_TRUE(no_child_is_left());
}

TEST_F(RunningApplications, AreStartedAgainAfterAStop) {
  install_application("web");
  ASSERT_EQ(tq_setup_app_manager(), 1);
  tq_start_app("web");
  const pid_t first = process_of("web");
  tq_stop_app("web");
  EXPECT_TRUE(ends(first));
  forget_process_of("web");
  tq_start_app("web");
  const pid_t second = process_of("web");
  EXPECT_NE(second, first);
  tq_stop_app("web");
  EXPECT_TRUE(ends(second));
}

TEST_F(RunningApplications, SleepOneSecondPerStopOfAStartedOne) {
  install_application("web");
  tq_setup_app_manager();
  tq_start_app("web");
  process_of("web");
  tq_stop_app("web");
  tq_stop_app("web");
  EXPECT_THAT(no_sleep_.naps(), ElementsAre(1U));
}

TEST_F(RunningApplications, AreStartedAfterTwoFailuresByStartAll) {
  install_application("web");
  tq_setup_app_manager();
  {
    int failures = 2;
    const Hook pipe("pipe", [&](int* ends) {
      if (failures-- <= 0) return ::pipe(ends);
      errno = EMFILE;
      return -1;
    });
    EXPECT_EQ(tq_start_all_app(), EMFILE);
  }
  EXPECT_THAT(all_statuses(), ElementsAre("web 0 started app"));
  EXPECT_TRUE(is_alive(process_of("web")));
  tq_stop_app("web");
}

TEST_F(RunningApplications, CountAsStartedWhenTheirFileCannotBeExecuted) {
  add_package("nofile");
  add_package("norights");
  write_information("norights.tqstartapp", "#!/bin/sh\nexit 0\n");
  tq_setup_app_manager();
  EXPECT_EQ(tq_start_app("nofile"), 0);
  EXPECT_EQ(tq_start_app("norights"), 0);
  EXPECT_THAT(all_statuses(), ElementsAre("nofile 0 started app", "norights 0 started app"));
  EXPECT_TRUE(no_child_is_left());
  EXPECT_EQ(tq_stop_all_app(), 0);
  EXPECT_THAT(all_statuses(), IsEmpty());
  EXPECT_TRUE(no_child_is_left());
}

TEST_F(RunningApplications, StayStartedWhenTheirProcessHasEnded) {
  add_package("short");
  write_program(information_file("short", ".tqstartapp"), "#!/bin/sh\nexit 0\n");
  tq_setup_app_manager();
  EXPECT_EQ(tq_start_app("short"), 0);
  EXPECT_TRUE(no_child_is_left());
  EXPECT_THAT(all_statuses(), ElementsAre("short 0 started app"));
  EXPECT_EQ(tq_stop_app("short"), 0);
}

TEST_F(RunningApplications, UseTheManagersOutput) {
  const TempDir directory;
  add_package("talker");
  write_program(information_file("talker", ".tqstartapp"), "#!/bin/sh\necho words\n");
  tq_setup_app_manager();
  {
    const Redirect out(STDOUT_FILENO, directory / "out");
    tq_start_app("talker");
  }
  EXPECT_TRUE(no_child_is_left());
  EXPECT_EQ(read_file(directory / "out"), "words\n");
}

}  // namespace
}  // namespace tarvio_test
