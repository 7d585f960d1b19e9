// tarviod --daemon.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "support/apps/applications.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarviod.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

// A tarviod in the background, which ends with the scope.
class Daemon {
 public:
  Daemon() : run_(run_tarviod({"--daemon"})), pid_(listening_process()) {}
  ~Daemon() {
    ::kill(pid_, SIGTERM);
    EXPECT_TRUE(ends(pid_));
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  const Ended& run() const { return run_; }
  pid_t pid() const { return pid_; }
  fs::path link(const std::string& name) const {
    return fs::read_symlink("/proc/" + std::to_string(pid_) + "/" + name);
  }

 private:
  const Ended run_;
  const pid_t pid_;
};

TEST(TarviodDaemon, ReportsItsApplicationsAndReturns0) {
  install_application("clock");
  const Daemon daemon;
  EXPECT_EQ(daemon.run().status, 0);
  EXPECT_EQ(daemon.run().output,
            "tarviod: 1 application installed, answering on " TQ_COM_SOCKET_PATH "\n");
  EXPECT_EQ(daemon.run().errors, "");
}

TEST(TarviodDaemon, ReturnsOnlyWhenRequestsAreAnswered) {
  const TempDir directory;
  const std::string go = directory / "go";
  Tarviod program({"--daemon"}, with_module(TARVIOD_HELD_SETUP, go));
  ::usleep(200 * 1000);  // long enough for a program that does not wait to exit
  EXPECT_FALSE(program.has_ended());
  EXPECT_FALSE(fs::exists(TQ_COM_SOCKET_PATH));
  write_file(go, "");
  EXPECT_EQ(program.end(), 0);
  const pid_t manager = listening_process();
  EXPECT_NE(manager, program.pid());
  ::kill(manager, SIGTERM);
  EXPECT_TRUE(ends(manager));
}

TEST(TarviodDaemon, HasItsOwnSession) {
  const Daemon daemon;
  EXPECT_EQ(::getsid(daemon.pid()), daemon.pid());
}

TEST(TarviodDaemon, KeepsNoDirectoryInUse) {
  const Daemon daemon;
  EXPECT_EQ(daemon.link("cwd"), "/");
}

TEST(TarviodDaemon, LetsGoOfTheTerminal) {
  const Daemon daemon;
  for (const char* stream : {"fd/0", "fd/1", "fd/2"}) EXPECT_EQ(daemon.link(stream), "/dev/null");
}

TEST(TarviodDaemon, GivesApplicationsNoTerminalEither) {
  install_application("clock");
  const Daemon daemon;
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
  const std::string process = std::to_string(process_of("clock"));
  EXPECT_EQ(fs::read_symlink("/proc/" + process + "/fd/0"), "/dev/null");
  for (const char* stream : {"1", "2"}) {
    EXPECT_THAT(fs::read_symlink("/proc/" + process + "/fd/" + stream).string(),
                testing::StartsWith("pipe:"));
  }
}

TEST(TarviodDaemon, ReportsWhyItCannotStartAndReturns1) {
  Tarviod first;
  ASSERT_TRUE(first.answers());
  const Ended second = run_tarviod({"--daemon"});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.errors,
            "tarviod: another manager already answers on " TQ_COM_SOCKET_PATH ": stop it first\n");
  EXPECT_EQ(second.output, "");
  EXPECT_EQ(listening_process(), first.pid());
}

TEST(TarviodDaemon, WorksWithoutStandardStreams) {
  install_application("clock");
  const Ended run = run_tarviod({"--daemon"}, [] {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
  });
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
  const pid_t application = process_of("clock");
  const pid_t manager = listening_process();
  ::kill(manager, SIGTERM);
  EXPECT_TRUE(ends(manager));
  EXPECT_TRUE(ends(application));
}

}  // namespace
}  // namespace tarvio_test
