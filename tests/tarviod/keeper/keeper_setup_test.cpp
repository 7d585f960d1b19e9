// What an application gets from the keeper.
#include <gmock/gmock.h>
#include <grp.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kept.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/users.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using runtime::ExitKind;
using tarviod::AppSetup;
using tarviod::Ask;
using tarviod::KeeperFound;
using tarviod::KeptState;
using testing::HasSubstr;
using testing::StartsWith;

class KeeperSetup : public Kept {
 protected:
  // Starts a program that stays, and waits until it is what it says.
  pid_t started(AppSetup setup) {
    set_text(setup.start_file, script("start", "exec sleep 600"));
    EXPECT_EQ(start("clock", setup), 0);
    const pid_t process = app("clock").process.pid;
    EXPECT_TRUE(eventually([&] { return status_line(process, "Name") == "Name:\tsleep"; }));
    return process;
  }
  // Runs a script to its end.
  void run(AppSetup setup, const std::string& body) {
    set_text(setup.start_file, script("start", body));
    EXPECT_EQ(start("clock", setup), 0);
    ASSERT_TRUE(becomes("clock", KeptState::kEnded));
    EXPECT_EQ(app("clock").exit_status, 0);
  }
};

TEST_F(KeeperSetup, IsASessionOfItsOwn) {
  const pid_t process = started(setup());
  EXPECT_EQ(::getsid(process), process);
  EXPECT_EQ(::getpgid(process), process);
}

TEST_F(KeeperSetup, HasDefaultSignalsExceptSigchld) {
  AppSetup clock = setup();
  write_program(clock.start_file, "#!/usr/bin/tail -f\n");  // a shell would set SIGCHLD itself
  EXPECT_EQ(start("clock", clock), 0);
  const pid_t process = app("clock").process.pid;
  const std::string program = "/proc/" + std::to_string(process) + "/exe";
  EXPECT_TRUE(eventually([&] { return fs::read_symlink(program).filename() == "tail"; }));
  EXPECT_EQ(signals_of(process, "SigBlk"), 0U);
  EXPECT_EQ(signals_of(process, "SigIgn"), uint64_t{1} << (SIGCHLD - 1));
}

TEST_F(KeeperSetup, HasOnlyItsStandardStreams) {
  AppSetup clock = setup();
  set_text(clock.output, "syslog");
  EXPECT_EQ(descriptor_count(started(clock)), 3);
}

TEST_F(KeeperSetup, HasTheManagersEnvironmentAndItsName) {
  ::setenv("TARVIO_APPLICATION", "other", 1);
  ASSERT_EQ(ask(link_, Ask::kEnd), 0);
  ASSERT_EQ(link_.open(), KeeperFound::kStarted);
  run(setup(), "env >variables");
  ::unsetenv("TARVIO_APPLICATION");
  const std::string variables = "\n" + read_file(directory_ / "variables");
  EXPECT_THAT(variables, HasSubstr("\nTARVIO_APPLICATION=clock\n"));
  EXPECT_THAT(variables, HasSubstr("\nPATH=" + std::string(std::getenv("PATH")) + "\n"));
}

TEST_F(KeeperSetup, ReadsNothing) { run(setup(), "! read line"); }

TEST_F(KeeperSetup, PrintsWhereTheManagerPrints) {
  {
    const Redirect output(STDOUT_FILENO, directory_ / "output");
    const Redirect errors(STDERR_FILENO, directory_ / "errors");
    run(setup(), "echo said; echo wrong >&2");
  }
  EXPECT_EQ(read_file(directory_ / "output"), "said\n");
  EXPECT_EQ(read_file(directory_ / "errors"), "wrong\n");
}

TEST_F(KeeperSetup, PrintsToAFileThatGrows) {
  AppSetup clock = setup();
  set_text(clock.output, directory_ / "log");
  write_file(directory_ / "log", "before\n");
  run(clock, "echo said; echo wrong >&2");
  run(clock, "echo again");
  EXPECT_EQ(read_file(directory_ / "log"), "before\nsaid\nwrong\nagain\n");
}

TEST_F(KeeperSetup, DoesNotRunWithoutItsFile) {
  AppSetup clock = setup(": >ran");
  set_text(clock.output, "/no/such/directory/log");
  EXPECT_EQ(start("clock", clock), 0);
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  EXPECT_EQ(app("clock").not_run.kind, ExitKind::kNoOutput);
  EXPECT_EQ(app("clock").not_run.number, ENOENT);
  EXPECT_FALSE(has("ran"));
}

TEST_F(KeeperSetup, PrintsToTheSystemLogUnderItsNameAndProcess) {
  const int log = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
  ASSERT_EQ(::bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  AppSetup clock = setup("echo $$ >process; echo said; exec sleep 600",
                         "echo stopping >&2; kill $(cat process)");
  set_text(clock.output, "syslog");
  clock.stop_timeout_ms = 1'000'000'000;
  EXPECT_EQ(start("clock", clock), 0);
  const auto next = [&] {
    char text[2000] = "";
    if (tarvio::wait_for(log, POLLIN, patience())) (void)::recv(log, text, sizeof text - 1, 0);
    return std::string(text);
  };
  EXPECT_THAT(next(), HasSubstr("clock[" + std::to_string(app("clock").process.pid) + "]: said"));
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_THAT(next(), testing::MatchesRegex(".*clock\\[[0-9]+\\]: stopping\n?"));
  ::close(log);
}

TEST_F(KeeperSetup, HasItsPriority) {
  AppSetup clock = setup();
  clock.nice = 7;
  EXPECT_EQ(::getpriority(PRIO_PROCESS, static_cast<id_t>(started(clock))), 7);
}

TEST_F(KeeperSetup, HasItsLimits) {
  AppSetup clock = setup();
  clock.limits = {.memory_bytes = 1 << 30, .open_files = 50, .processes = 5000};
  const pid_t process = started(clock);
  const auto limit_of = [process](auto resource) {
    rlimit limit = {};
    EXPECT_EQ(::prlimit(process, resource, nullptr, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, limit.rlim_max);
    return limit.rlim_cur;
  };
  EXPECT_EQ(limit_of(RLIMIT_AS), rlim_t{1} << 30);
  EXPECT_EQ(limit_of(RLIMIT_NOFILE), 50U);
  EXPECT_EQ(limit_of(RLIMIT_NPROC), 5000U);
}

TEST_F(KeeperSetup, HasTheManagersLimitsElse) {
  rlimit own = {};
  rlimit limit = {};
  const pid_t process = started(setup());
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &own), 0);
  ASSERT_EQ(::prlimit(process, RLIMIT_NOFILE, nullptr, &limit), 0);
  EXPECT_EQ(limit.rlim_cur, own.rlim_cur);
  EXPECT_EQ(limit.rlim_max, own.rlim_max);
}

std::string ids(unsigned id) {
  const std::string text = "\t" + std::to_string(id);
  return text + text + text + text;
}

std::set<gid_t> groups_of(const passwd& user) {
  gid_t groups[64];
  int count = 64;
  EXPECT_GT(::getgrouplist(user.pw_name, user.pw_gid, groups, &count), 0);
  return {groups, groups + count};
}

class KeeperSetupOfUsers : public KeeperSetup {
 protected:
  void SetUp() override {
    if (!has_other_users()) GTEST_SKIP() << "there is no other user in this sandbox";
    KeeperSetup::SetUp();
    fs::permissions(directory_.path(), fs::perms(0755));
  }
};

TEST_F(KeeperSetupOfUsers, IsOfItsUserAndOfTheUsersGroups) {
  AppSetup clock = setup();
  set_text(clock.user, "nobody");
  const pid_t process = started(clock);
  const passwd& nobody = *::getpwnam("nobody");
  EXPECT_EQ(status_line(process, "Uid"), "Uid:" + ids(nobody.pw_uid));
  EXPECT_EQ(status_line(process, "Gid"), "Gid:" + ids(nobody.pw_gid));
  std::set<gid_t> groups;
  std::istringstream line(status_line(process, "Groups").substr(sizeof "Groups:" - 1));
  for (gid_t group; line >> group;) groups.insert(group);
  EXPECT_EQ(groups, groups_of(nobody));
}

TEST_F(KeeperSetupOfUsers, IsOfItsGroup) {
  AppSetup clock = setup();
  set_text(clock.group, "daemon");
  const pid_t process = started(clock);
  EXPECT_EQ(status_line(process, "Uid"), "Uid:" + ids(0));
  EXPECT_EQ(status_line(process, "Gid"), "Gid:" + ids(::getgrnam("daemon")->gr_gid));
}

TEST_F(KeeperSetupOfUsers, IsOfItsUserAndItsGroup) {
  AppSetup clock = setup();
  set_text(clock.user, "nobody");
  set_text(clock.group, "daemon");
  const pid_t process = started(clock);
  EXPECT_EQ(status_line(process, "Uid"), "Uid:" + ids(::getpwnam("nobody")->pw_uid));
  EXPECT_EQ(status_line(process, "Gid"), "Gid:" + ids(::getgrnam("daemon")->gr_gid));
}

TEST_F(KeeperSetupOfUsers, RunsItsStopFileAsTheSameUser) {
  AppSetup clock = setup("exec sleep 600", "id -u >stopped; kill -9 -1");
  fs::permissions(directory_.path(), fs::perms(0777));
  set_text(clock.user, "nobody");
  EXPECT_EQ(start("clock", clock), 0);
  fs::remove(clock.stop_file);  // the copy can be read by that user, too
  EXPECT_EQ(stop("clock"), 0);
  EXPECT_EQ(read_file(directory_ / "stopped"), std::to_string(::getpwnam("nobody")->pw_uid) + "\n");
}

TEST_F(KeeperSetupOfUsers, WritesToAFileOfTheManagersUser) {
  AppSetup clock = setup();
  set_text(clock.user, "nobody");
  set_text(clock.output, directory_ / "log");
  run(clock, "echo said");
  EXPECT_EQ(read_file(directory_ / "log"), "said\n");
}

TEST_F(KeeperSetup, DoesNotRunWithoutItsLimits) {
  AppSetup clock = setup(": >ran");
  clock.limits.open_files = int64_t{1} << 40;  // more than the kernel gives to anybody
  EXPECT_EQ(start("clock", clock), 0);
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  EXPECT_EQ(app("clock").not_run.kind, ExitKind::kNoLimits);
  EXPECT_EQ(app("clock").not_run.number, EPERM);
  EXPECT_FALSE(has("ran"));
}

TEST_F(KeeperSetup, DoesNotRunForAnUnknownUserOrGroup) {
  for (char(AppSetup::*const name)[tarviod::kMaxUserBytes + 1] :
       {&AppSetup::user, &AppSetup::group}) {
    AppSetup clock = setup(": >ran");
    set_text(clock.*name, "no-such-name");
    EXPECT_EQ(start("clock", clock), 0);
    ASSERT_TRUE(becomes("clock", KeptState::kEnded));
    EXPECT_EQ(app("clock").not_run.kind, ExitKind::kNoUser);
    EXPECT_EQ(app("clock").not_run.number, EINVAL);
  }
  EXPECT_FALSE(has("ran"));
}

}  // namespace
}  // namespace tarvio_test
