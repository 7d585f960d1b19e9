#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

class PrivateDirectory : public testing::TestWithParam<const char*> {};

TEST_P(PrivateDirectory, IsEmptyAndWritable) {
  const fs::path directory = GetParam();
  EXPECT_TRUE(fs::is_empty(directory));
  write_file(directory / "probe", "text");
  EXPECT_EQ(read_file(directory / "probe"), "text");
}

INSTANTIATE_TEST_SUITE_P(Sandbox, PrivateDirectory,
                         testing::Values("/usr/lib/opkg/info", "/usr/local/share/tarvio",
                                         "/mnt/root", "/etc/tarvio", "/run/tmp", "/dev/shm"));

TEST(Sandbox, ShowsTheRestOfADirectoryThatItHadToRebuild) {
  EXPECT_TRUE(fs::exists("/etc/passwd"));
  EXPECT_GT(std::distance(fs::directory_iterator("/usr/lib"), {}), 2);
}

TEST(Sandbox, RunsAsRoot) { EXPECT_EQ(::geteuid(), 0U); }

TEST(Sandbox, HasAKernelCommandLineThatATestCanRewrite) {
  EXPECT_EQ(read_file("/proc/cmdline"), "console=ttyAMA0 root=/dev/mtdblock4 rw\n");
  write_kernel_command_line("root=/dev/mtdblock5");
  EXPECT_EQ(read_file("/proc/cmdline"), "root=/dev/mtdblock5");
  write_kernel_command_line("");
  EXPECT_EQ(read_file("/proc/cmdline"), "");
}

TEST(Sandbox, KeepsTemporaryFilesInItsOwnDirectory) {
  const TempDir directory;
  EXPECT_THAT(directory.path().string(), testing::StartsWith("/run/tmp/"));
}

TEST(Sandbox, HasRoomForALogSocketOfTheTest) {
  EXPECT_FALSE(fs::exists("/dev/log"));
  const int listener = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
  EXPECT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(listener);
}

class Device : public testing::TestWithParam<const char*> {};

TEST_P(Device, CanBeOpened) {
  const int device = ::open(GetParam(), O_RDWR | O_CLOEXEC);
  EXPECT_GE(device, 0) << GetParam();
  ::close(device);
}

INSTANTIATE_TEST_SUITE_P(Sandbox, Device,
                         testing::Values("/dev/null", "/dev/zero", "/dev/full", "/dev/urandom"));

// Runs a command and gives what `waitpid` says.
int run(std::vector<const char*> command) {
  command.push_back(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::execvp(command[0], const_cast<char**>(command.data()));
    ::_exit(126);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

// Runs a shell script in a further sandbox.
int enter(const char* script) { return run({TARVIO_SANDBOX_ENTER, "sh", "-c", script}); }

// The same below mounts that cannot be taken apart, where the kernel allows no further /proc.
int enter_without_own_proc(const char* script) {
  return run({"unshare", "--user", "--mount", "--map-root-user", TARVIO_SANDBOX_ENTER, "sh", "-c",
              script});
}

// Whether the command finds what listens on the network of this sandbox.
bool reaches(std::vector<const char*> command) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(7);
  EXPECT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(::listen(listener, 1), 0);
  command.insert(command.end(), {"bash", "-c", "exec 3<>/dev/tcp/127.0.0.1/7"});
  const int status = run(command);
  ::close(listener);
  return status == 0;
}

TEST(Sandbox, HasANetworkOfItsOwn) {
  EXPECT_TRUE(reaches({"env"}));
  EXPECT_FALSE(reaches({TARVIO_SANDBOX_ENTER}));
}

TEST(Sandbox, SharesTheNetworkIfAskedTo) {
  EXPECT_TRUE(reaches({TARVIO_SANDBOX_ENTER, "--share-network"}));
}

TEST(Sandbox, PassesTheExitStatusOn) { EXPECT_EQ(WEXITSTATUS(enter("exit 7")), 7); }

TEST(Sandbox, ReportsTheSignalThatEndedTheCommand) {
  EXPECT_EQ(WEXITSTATUS(enter("kill -SEGV $$")), 128 + SIGSEGV);
}

TEST(Sandbox, SaysWhenTheCommandIsMissing) {
  EXPECT_EQ(WEXITSTATUS(run({TARVIO_SANDBOX_ENTER, "/no/such/program"})), 127);
}

TEST(Sandbox, HidesWhatOneTestWritesFromTheNext) {
  ASSERT_EQ(enter("touch /usr/lib/opkg/info/a.control /usr/local/share/tarvio/a /mnt/root/a"), 0);
  EXPECT_TRUE(fs::is_empty("/usr/lib/opkg/info"));
  EXPECT_TRUE(fs::is_empty("/usr/local/share/tarvio"));
  EXPECT_TRUE(fs::is_empty("/mnt/root"));
}

// Whether nothing of the given sandbox is alive when it has ended: the write end of a pipe stays
// open as long as a process has it.
bool ends_all(int (*enter_sandbox)(const char*)) {
  int ends[2];
  if (::pipe(ends) != 0) return false;
  EXPECT_EQ(enter_sandbox("setsid sleep 600 & (sleep 600 &)"), 0);
  ::close(ends[1]);
  pollfd end = {.fd = ends[0], .events = POLLIN, .revents = 0};
  const bool closed = ::poll(&end, 1, 0) == 1 && (end.revents & POLLHUP) != 0;
  ::close(ends[0]);
  return closed;
}

TEST(Sandbox, EndsWhatTheCommandLeavesBehind) { EXPECT_TRUE(ends_all(enter)); }

TEST(SandboxWithoutOwnProc, EndsWhatTheCommandLeavesBehind) {
  EXPECT_TRUE(ends_all(enter_without_own_proc));
}

TEST(SandboxWithoutOwnProc, HasItsPrivateDirectories) {
  EXPECT_EQ(enter_without_own_proc("touch /usr/lib/opkg/info/a && grep -q ttyAMA0 /proc/cmdline"),
            0);
  EXPECT_TRUE(fs::is_empty("/usr/lib/opkg/info"));
}

TEST(SandboxWithoutOwnProc, PassesTheExitStatusOn) {
  EXPECT_EQ(WEXITSTATUS(enter_without_own_proc("exit 7")), 7);
}

TEST(Sandbox, GivesTheCommandAProcessGroupThatItCanSignal) {
  EXPECT_GT(::getpgrp(), 0);
  EXPECT_EQ(WEXITSTATUS(enter("trap 'exit 9' TERM; kill -TERM 0; sleep 5")), 9);
}

}  // namespace
}  // namespace tarvio_test
