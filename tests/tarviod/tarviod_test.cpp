// How tarviod starts.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <deque>
#include <filesystem>
#include <string>
#include <vector>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarviod.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::StartsWith;

constexpr int kUsage = 64;
constexpr char kDirectory[] = "/usr/local/share/tarvio";
constexpr char kAnswered[] =
    "tarviod: another manager already answers on " TQ_COM_SOCKET_PATH ": stop it first\n";
constexpr char kSilent[] =
    "tarviod: another manager runs but does not answer on " TQ_COM_SOCKET_PATH
    ": stop it first, or wait while it starts or stops\n";

std::string ready_line(const std::string& applications) {
  return "tarviod: " + applications + " installed, answering on " TQ_COM_SOCKET_PATH "\n";
}

mode_t mode_of(const std::string& path) {
  struct stat info = {};
  EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

// Something else at a path.
class Mount {
 public:
  Mount(const char* source, const char* path, const char* type, unsigned long flags) : path_(path) {
    EXPECT_EQ(::mount(source, path, type, flags, nullptr), 0) << path;
  }
  ~Mount() { ::umount2(path_, MNT_DETACH); }
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;

 private:
  const char* path_;
};

TEST(Tarviod, ReportsNoApplicationWhenNoneIsInstalled) {
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.output(), ready_line("0 applications"));
  EXPECT_EQ(manager.errors(), "");
}

TEST(Tarviod, ReportsOneApplication) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.output(), ready_line("1 application"));
}

TEST(Tarviod, ReportsTheNumberOfApplications) {
  for (const char* name : {"clock", "radio", "weather"}) install_application(name);
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.output(), ready_line("3 applications"));
}

TEST(Tarviod, CountsNoOtherPackages) {
  install_application("clock");
  install_package("rootfs", "Image");
  install_package("fonts", "Data");
  install_package("invisible", "Application");
  fs::remove(information_file("invisible", ".tqcontrol"));
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.output(), ready_line("1 application"));
}

TEST(Tarviod, NamesApplicationsThatFindNoBinding) {
  for (const char* name : {"xeyes", "clock", "xterm"}) install_application(name);
  Tarviod manager({}, with_module(TARVIOD_NO_BINDING));
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.errors(),
            "tarviod: xterm: no binding accepts this application\n"
            "tarviod: xeyes: no binding accepts this application\n");
  EXPECT_EQ(manager.output(), ready_line("3 applications"));
}

TEST(Tarviod, StartsTheApplicationsThatFindABinding) {
  for (const char* name : {"xeyes", "clock"}) install_application(name);
  Tarviod manager({"--start-all"}, with_module(TARVIOD_NO_BINDING));
  ASSERT_TRUE(manager.answers());
  process_of("clock");
  // It starts them once it answers.
  EXPECT_TRUE(eventually([&] {
    return manager.errors() ==
           "tarviod: xeyes: no binding accepts this application\n"
           "tarviod: starting the applications: Invalid argument\n";
  })) << manager.errors();
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nxeyes\n"), "22\n\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_all\n"), "22\n\n");
  EXPECT_EQ(status_of("xeyes"), "2\nstart app failed.\n");
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
}

class Help : public testing::TestWithParam<const char*> {};

TEST_P(Help, IsPrinted) {
  const Ended run = run_tarviod({GetParam()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, StartsWith("usage: tarviod [OPTION]...\n"));
  for (const char* option : {"--check-config", "--config FILE", "--daemon", "--log-level N",
                             "--start-all", "--keep-applications", "--pid-file FILE",
                             "--socket-mode MODE", "--socket-group GROUP", "--help", "--version"})
    EXPECT_THAT(run.output, HasSubstr(option));
  EXPECT_EQ(run.errors, "");
  EXPECT_FALSE(fs::exists(TQ_COM_SOCKET_PATH));
}

INSTANTIATE_TEST_SUITE_P(Tarviod, Help, testing::Values("--help", "-h"));

class Version : public testing::TestWithParam<const char*> {};

TEST_P(Version, IsPrinted) {
  const Ended run = run_tarviod({GetParam()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "tarviod " TARVIO_VERSION "\n");
  EXPECT_EQ(run.errors, "");
}

INSTANTIATE_TEST_SUITE_P(Tarviod, Version, testing::Values("--version", "-V"));

struct WrongLine {
  std::vector<std::string> arguments;
  std::string complaint;
};

std::ostream& operator<<(std::ostream& stream, const WrongLine& line) {
  return stream << line.complaint;
}

class WrongCommandLine : public testing::TestWithParam<WrongLine> {};

TEST_P(WrongCommandLine, IsRefused) {
  const Ended run = run_tarviod(GetParam().arguments);
  EXPECT_EQ(run.status, kUsage);
  EXPECT_EQ(run.errors, "tarviod: " + GetParam().complaint + "\nTry 'tarviod --help'.\n");
  EXPECT_EQ(run.output, "");
  EXPECT_FALSE(fs::exists(TQ_COM_SOCKET_PATH));
}

WrongLine wrong_level(const std::string& level) {
  return {{"--log-level", level}, "log level '" + level + "' is not a number from 0 to 4"};
}

WrongLine wrong_mode(const std::string& mode) {
  return {{"--socket-mode", mode},
          "socket mode '" + mode + "' is not an octal number from 0 to 0777"};
}

INSTANTIATE_TEST_SUITE_P(
    Tarviod, WrongCommandLine,
    testing::Values(WrongLine{{"--nonsense"}, "unrecognized option '--nonsense'"},
                    WrongLine{{"-x"}, "invalid option -- 'x'"},
                    WrongLine{{"--log-level"}, "option '--log-level' requires an argument"},
                    WrongLine{{"--config"}, "option '--config' requires an argument"},
                    WrongLine{{"--daemon=now"}, "option '--daemon' doesn't allow an argument"},
                    WrongLine{{"clock"}, "unexpected argument 'clock'"},
                    WrongLine{{"--pid-file", ""}, "the name of a file must not be empty"},
                    WrongLine{{"--output", ""}, "the name of a file must not be empty"},
                    WrongLine{{"--output", "sylog"},
                              "--output: 'sylog' is not syslog, inherit, or a path with a slash"},
                    WrongLine{{"--daemon", "--", "-s"}, "unexpected argument '-s'"},
                    wrong_level("5"), wrong_level("-1"), wrong_level("two"), wrong_level("2x"),
                    wrong_level(""), wrong_level("99999999999999999999"), wrong_mode("0680"),
                    wrong_mode("1666"), wrong_mode("-1"), wrong_mode(""), wrong_mode("rw"),
                    wrong_mode("0660,"),
                    WrongLine{{"--socket-group"}, "option '--socket-group' requires an argument"}));

TEST(Tarviod, LetsEverybodyConnectWhateverTheFileModeMask) {
  const Mount share("test", "/usr/local/share", "tmpfs", 0);
  Tarviod manager({}, [] { ::umask(0077); });
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(mode_of(TQ_COM_SOCKET_PATH), 0666U);
  EXPECT_EQ(mode_of(kDirectory), 0755U);
}

TEST(Tarviod, LeavesTheModeOfADirectoryThatIsThere) {
  fs::permissions(kDirectory, fs::perms(0711));
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(mode_of(kDirectory), 0711U);
}

TEST(Tarviod, SaysWhenItCannotMakeTheDirectory) {
  const Mount share("test", "/usr/local/share", "tmpfs", MS_RDONLY);
  const Ended run = run_tarviod({});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors,
            "tarviod: cannot create /usr/local/share/tarvio: Read-only file system: create it, or "
            "run as root\n");
  EXPECT_EQ(run.output, "");
}

TEST(Tarviod, SaysWhenAFileStandsInPlaceOfTheDirectory) {
  const Mount share("test", "/usr/local/share", "tmpfs", 0);
  write_file(kDirectory, "");
  const Ended run = run_tarviod({});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: cannot use /usr/local/share/tarvio: Not a directory\n");
}

TEST(Tarviod, SaysWhenItMayNotWriteInTheDirectory) {
  const Mount directory("test", kDirectory, "tmpfs", MS_RDONLY);
  const Ended run = run_tarviod({});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: cannot use /usr/local/share/tarvio: Read-only file system\n");
}

TEST(Tarviod, SaysWhenADirectoryStandsInPlaceOfTheSocket) {
  fs::create_directory(TQ_COM_SOCKET_PATH);
  const Ended run = run_tarviod({});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: cannot replace " TQ_COM_SOCKET_PATH ": Is a directory\n");
  EXPECT_EQ(run.output, "");
}

TEST(Tarviod, ReplacesTheSocketOfAManagerThatIsGone) {
  listen_on(TQ_COM_SOCKET_PATH).close();
  ASSERT_TRUE(fs::is_socket(TQ_COM_SOCKET_PATH));
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(listening_process(), manager.pid());
}

TEST(Tarviod, ReplacesAFileInPlaceOfTheSocket) {
  write_file(TQ_COM_SOCKET_PATH, "");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(listening_process(), manager.pid());
}

TEST(Tarviod, RefusesToStartWhileAnotherAnswers) {
  Tarviod first;
  ASSERT_TRUE(first.answers());
  const Ended second = run_tarviod({});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.errors, kAnswered);
  EXPECT_EQ(second.output, "");
  EXPECT_EQ(listening_process(), first.pid());
}

TEST(Tarviod, RefusesToStartWhileAnotherIsTooBusyToAnswer) {
  Tarviod first;
  ASSERT_TRUE(first.answers());
  first.send(SIGSTOP);
  std::deque<Socket> waiting;
  do waiting.push_back(new_socket());
  while (try_to_connect(waiting.back(), TQ_COM_SOCKET_PATH));
  EXPECT_EQ(run_tarviod({}).errors, kAnswered);
  first.send(SIGCONT);
  EXPECT_EQ(listening_process(), first.pid());
}

TEST(Tarviod, RefusesToStartBesideOneWhoseSocketIsDeleted) {
  Tarviod first;
  ASSERT_TRUE(first.answers());
  fs::remove(TQ_COM_SOCKET_PATH);
  const Ended second = run_tarviod({});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.errors, kSilent);
  EXPECT_FALSE(fs::exists(TQ_COM_SOCKET_PATH));
}

// A host of the library, or a manager of a release that held no lock once it answered.
TEST(Tarviod, RefusesToStartWhileSomebodyElseAnswers) {
  const Socket other = listen_on(TQ_COM_SOCKET_PATH);
  const Ended run = run_tarviod({});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, kAnswered);
}

// As every user may who can read the directory.
TEST(Tarviod, StartsWhileSomebodyElseHasLockedTheDirectory) {
  const int directory = ::open(kDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(::flock(directory, LOCK_EX), 0);
  Tarviod manager;
  EXPECT_TRUE(manager.answers());
  ::close(directory);
  EXPECT_EQ(mode_of(TQ_COM_SOCKET_PATH ".lock"), 0600U);
}

TEST(Tarviod, SaysWhenItCannotLock) {
  fs::create_symlink("/dev/null", TQ_COM_SOCKET_PATH ".lock");
  const Ended run = run_tarviod({});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: cannot lock " TQ_COM_SOCKET_PATH
                        ".lock: Too many levels of symbolic links\n");
  EXPECT_TRUE(fs::is_symlink(TQ_COM_SOCKET_PATH ".lock"));
}

TEST(Tarviod, LetsOneOfSimultaneousStartsWin) {
  constexpr size_t kStarts = 10;
  std::deque<Tarviod> managers;
  while (managers.size() < kStarts) managers.emplace_back();
  const auto running = [&] {
    return std::count_if(managers.begin(), managers.end(),
                         [](Tarviod& manager) { return !manager.has_ended(); });
  };
  ASSERT_TRUE(eventually([&] { return running() == 1; }));
  for (Tarviod& manager : managers) {
    if (!manager.has_ended()) {
      EXPECT_TRUE(manager.answers());
      EXPECT_EQ(listening_process(), manager.pid());
      continue;
    }
    EXPECT_EQ(manager.end(), 1);
    EXPECT_THAT(manager.errors(), testing::AnyOf(kAnswered, kSilent));
    EXPECT_EQ(manager.output(), "");
  }
}

void close_standard_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
}

TEST(Tarviod, WorksWithoutStandardStreams) {
  Tarviod manager({"--log-level", "0"}, close_standard_streams);
  ASSERT_TRUE(is_listened_to());
  const std::string descriptors = "/proc/" + std::to_string(manager.pid()) + "/fd/";
  for (const char* stream : {"0", "1", "2"})
    EXPECT_EQ(fs::read_symlink(descriptors + stream), "/dev/null") << stream;
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "22\n\n");
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
}

}  // namespace
}  // namespace tarvio_test
