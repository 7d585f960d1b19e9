#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

#include "support/files.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

class PrivateFolder : public testing::TestWithParam<const char*> {};

TEST_P(PrivateFolder, IsEmptyAndWritable) {
  const fs::path folder = GetParam();
  EXPECT_TRUE(fs::is_empty(folder));
  write_file(folder / "probe", "text");
  EXPECT_EQ(read_file(folder / "probe"), "text");
}

INSTANTIATE_TEST_SUITE_P(Sandbox, PrivateFolder,
                         testing::Values("/usr/lib/opkg/info", "/usr/local/share/tarvio",
                                         "/mnt/root", "/etc/tarvio", "/run/tmp", "/dev/shm"));

TEST(Sandbox, ShowsTheRestOfAFolderThatItHadToRebuild) {
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

TEST(Sandbox, KeepsTemporaryFilesInItsOwnFolder) {
  const TempDir folder;
  EXPECT_THAT(folder.path().string(), testing::StartsWith("/run/tmp/"));
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

// Runs a command in a further sandbox and gives what `waitpid` says.
int enter(const std::string& command) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::execl(TARVIO_SANDBOX_ENTER, TARVIO_SANDBOX_ENTER, "sh", "-c", command.c_str(), nullptr);
    ::_exit(126);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

TEST(Sandbox, PassesTheExitStatusOn) { EXPECT_EQ(WEXITSTATUS(enter("exit 7")), 7); }

TEST(Sandbox, TellsTheSignalThatEndedTheCommand) {
  EXPECT_EQ(WEXITSTATUS(enter("kill -SEGV $$")), 128 + SIGSEGV);
}

TEST(Sandbox, SaysWhenTheCommandIsMissing) {
  EXPECT_EQ(WEXITSTATUS(enter("exec no-such-command 2>/dev/null")), 127);
}

TEST(Sandbox, HidesWhatOneTestWritesFromTheNext) {
  ASSERT_EQ(enter("touch /usr/lib/opkg/info/a.control /usr/local/share/tarvio/a /mnt/root/a"), 0);
  EXPECT_TRUE(fs::is_empty("/usr/lib/opkg/info"));
  EXPECT_TRUE(fs::is_empty("/usr/local/share/tarvio"));
  EXPECT_TRUE(fs::is_empty("/mnt/root"));
}

// The write end of a pipe stays open as long as a process of the sandbox has it.
TEST(Sandbox, EndsWhatTheCommandLeavesBehind) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(enter("setsid sleep 600 & (sleep 600 &)"), 0);
  ::close(ends[1]);
  char byte = 0;
  EXPECT_EQ(::read(ends[0], &byte, 1), 0);
  ::close(ends[0]);
}

TEST(Sandbox, GivesTheCommandAProcessGroupThatItCanSignal) {
  EXPECT_GT(::getpgrp(), 0);
  EXPECT_EQ(WEXITSTATUS(enter("trap 'exit 9' TERM; kill -TERM 0; sleep 5")), 9);
}

}  // namespace
}  // namespace tarvio_test
