// What tools can do that read packages.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/owners.h"
#include "process/child.h"
#include "support/files.h"
#include "support/memory_bound.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/old_kernel.h"
#include "support/programs/tarvio.h"
#include "support/users.h"

namespace tarvio_test {
namespace {

using client::Rights;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr double kSeconds = 300;
constexpr size_t kMiB = 1U << 20;

bool has_filters() { return ::prctl(PR_GET_SECCOMP, 0, 0, 0, 0) >= 0; }

bool has_landlock() { return ::syscall(444, nullptr, 0, 1) >= 3; }

class LimitedRights : public testing::Test {
 protected:
  LimitedRights() {
    write_file(outside_ / "file", "content\n");
    ::chmod((outside_ / "file").c_str(), 0600);
    ::setenv("OUTSIDE", outside_.path().c_str(), 1);
    ::setenv("INHERITED", std::to_string(inherited_.get()).c_str(), 1);
  }

  // What the captive prints.
  static std::string tries() {
    const client::WorkDirectory directory;
    std::string output;
    client::execute(directory, Rights::to_read("", kMiB), {TARVIO_CAPTIVE}, kSeconds,
                    [&output](std::string_view piece) { output += piece; });
    return output;
  }

  const TempDir outside_;
  const tarvio::Fd inherited_{::fcntl(STDERR_FILENO, F_DUPFD, 300)};  // no number for others
};

TEST_F(LimitedRights, BoundFiles) {
  EXPECT_THAT(tries(), AllOf(HasSubstr("write: done\n"), HasSubstr("write nothing: done\n"),
                             HasSubstr("bytes: File too large\n"),
                             HasSubstr("files: Too many open files\n")));
}

TEST_F(LimitedRights, IncludeNoDescriptors) {
  EXPECT_THAT(tries(), HasSubstr("inherited: Bad file descriptor\n"));
}

TEST_F(LimitedRights, LetPackagesBeReadBesideManyDescriptors) {
  const HandMadePackage package;
  const auto open_many = [] {
    for (int count = 0; count < 100; ++count) (void)::open("/dev/null", O_RDONLY);
  };
  const Ran ran = run_tarvio({"inspect", package.path()}, open_many);
  EXPECT_EQ(ran.errors, "");
  EXPECT_EQ(ran.status, 0);
}

TEST_F(LimitedRights, BoundMemory) {
  if (!is_memory_bounded()) GTEST_SKIP() << "a sanitizer or an emulator takes very much memory";
  EXPECT_THAT(tries(), AllOf(HasSubstr("\nmemory: done\n"),
                             HasSubstr("much memory: Cannot allocate memory\n")));
}

TEST_F(LimitedRights, IncludeNoCapabilities) {
  EXPECT_THAT(tries(),
              AllOf(HasSubstr("CapPrm:\t0000000000000000\n"),
                    HasSubstr("CapEff:\t0000000000000000\n"), HasSubstr("NoNewPrivs:\t1\n")));
}

TEST_F(LimitedRights, IncludeNoSystemCallThatNoReaderNeeds) {
  if (!has_filters()) GTEST_SKIP() << "the kernel has no system call filters";
  const std::string lines = tries();
  for (const std::string trial :
       {"network", "local socket", "trace", "leave the group", "namespace",
        "process in a namespace", "mount", "keys", "filters", "module", "personality",
        "shared memory", "others' shared memory", "others' limits", "others' limits, longer",
        "others' priority", "truncate outside"}) {
    EXPECT_THAT(lines, HasSubstr("\n" + trial + ": Operation not permitted\n"));
  }
  for (const std::string trial : {"device", "terminal", "flags outside"}) {
    EXPECT_THAT(lines, HasSubstr("\n" + trial + ": Inappropriate ioctl for device\n"));
  }
  EXPECT_THAT(lines, HasSubstr("rings: Function not implemented\n"));
}

TEST_F(LimitedRights, KeepFilesOutsideAsTheyAre) {
  if (!has_landlock()) GTEST_SKIP() << "the kernel has no Landlock";
  const std::string lines = tries();
  for (const std::string trial : {"write outside", "create outside", "remove outside"}) {
    EXPECT_THAT(lines, HasSubstr(trial + ": Permission denied\n"));
  }
  EXPECT_THAT(lines, Not(HasSubstr("rename to outside: done")));
  struct stat status = {};
  EXPECT_EQ(::stat((outside_ / "file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_GT(status.st_mtime, 0);
  EXPECT_EQ(read_file(outside_ / "file"), "content\n");
  EXPECT_FALSE(std::filesystem::exists(outside_ / "new"));
  EXPECT_FALSE(std::filesystem::exists(outside_ / "here"));
}

// "0.20 0.18 0.12 1/80 11206": 80.
rlim_t count_processes() {
  const std::string load = read_file("/proc/loadavg");
  return std::stoul(load.substr(load.find('/') + 1));
}

// The kernel does not count those of root. Others may start or end meanwhile, but not that many.
TEST_F(LimitedRights, BoundProcesses) {
  rlimit before = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NPROC, &before), 0);
  const rlim_t most = count_processes() + 32;
  if (before.rlim_max <= most + 1000) GTEST_SKIP() << "this user may not have many";
  std::string limits;
  const client::WorkDirectory directory;
  client::execute(directory, Rights::to_read("", 0), {"grep", "Max processes", "/proc/self/limits"},
                  kSeconds, [&limits](std::string_view piece) { limits += piece; });
  const size_t number = limits.find_first_of("0123456789");
  ASSERT_NE(number, std::string::npos) << limits;
  EXPECT_NEAR(static_cast<double>(std::stoul(limits.substr(number))), static_cast<double>(most),
              500);
}

// Only root's right to read everything opens it, which root's tools therefore keep.
TEST_F(LimitedRights, LetRootReadPackagesOfOthers) {
  if (!has_other_users()) GTEST_SKIP() << "there is no other user in this sandbox";
  const HandMadePackage package;
  ASSERT_EQ(::chown(package.path().c_str(), 4711, 4711), 0);
  ASSERT_EQ(::chmod(package.path().c_str(), 0600), 0);
  const Ran ran = run_tarvio({"inspect", package.path()});
  EXPECT_EQ(ran.errors, "");
  EXPECT_EQ(ran.status, 0);
}

// A process whose parent has ended becomes this one's child, as that of an init.
TEST_F(LimitedRights, EndWithTheTool) {
  ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0), 0);
  EXPECT_THAT(tries(), HasSubstr("leave a process behind: done\n"));
  int status = 0;
  EXPECT_GT(::wait(&status), 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
  ::prctl(PR_SET_CHILD_SUBREAPER, 0, 0, 0, 0);
}

// The tool that reads a package is limited, as the user runs it.
TEST_F(LimitedRights, AreThoseOfToolsThatReadPackages) {
  const HandMadePackage package;
  const TempDir tools;
  write_program(
      tools / "tar",
      "#!/bin/sh\ncase $* in *-tvz*) grep NoNewPrivs /proc/self/status >&2; exit 3; esac\n"
      "PATH=${PATH#*:} exec tar \"$@\"\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  EXPECT_THAT(run_tarvio({"check", package.path()}).errors, HasSubstr("NoNewPrivs:"));
}

TEST_F(LimitedRights, LetPackagesOfOtherOwnersBeRead) {
  const HandMadePackage package;
  package.shell(
      "tar czf control.tar.gz --owner=4711 --group=4711 --mode=u+s ./control ./tqcontrol");
  package.build();
  const Ran ran = run_tarvio({"inspect", package.path()});
  EXPECT_EQ(ran.errors, "");
  EXPECT_EQ(ran.status, 0);
}

TEST_F(LimitedRights, LetControlFilesOfAnyModeBeRead) {
  const HandMadePackage package;
  package.shell("tar czf control.tar.gz --mode=000 ./control ./tqcontrol");
  package.build();
  EXPECT_EQ(run_tarvio({"inspect", package.path()}).errors, "");
  EXPECT_EQ(run_tarvio({"check", package.path()}).status, 0);
  package.shell(
      "for members in ./control './control ./tqcontrol'; do tar rf twice --mode=000 $members; "
      "done; "
      "gzip -c twice >control.tar.gz");
  package.build();
  EXPECT_EQ(run_tarvio({"inspect", package.path()}).errors,
            "tarvio: cannot inspect '" + package.path() +
                "': cannot read its control: its mode forbids it (13)\n");
}

TEST_F(LimitedRights, FallBackToThoseThatAreThere) {
  const HandMadePackage package;
  for (const auto& become : {become_old, become_contained}) {
    const Ran ran = run_tarvio({"inspect", package.path()}, become);
    EXPECT_EQ(ran.errors, "");
    EXPECT_EQ(ran.status, 0);
  }
}

TEST_F(LimitedRights, AreReportedWhereAKernelDoesNotHaveThem) {
  if (!has_filters())
    GTEST_SKIP() << "the emulator has no filters, with which the test needs to begin";
  const std::string table = run_tarvio({"doctor"}, become_old).output;
  EXPECT_THAT(table,
              HasSubstr("isolation         warning  the kernel does not keep what reads packages "
                        "from opening sockets, writing outside of the work directory\n"));
}

TEST_F(LimitedRights, AreReportedWhereAContainerRefusesThem) {
  if (!has_filters())
    GTEST_SKIP() << "the emulator has no filters, with which the test needs to begin";
  const std::string capabilities = ::geteuid() == 0 ? "using capabilities, " : "";
  EXPECT_THAT(run_tarvio({"doctor"}, become_contained).output,
              HasSubstr("what reads packages from " + capabilities +
                        "opening sockets, writing outside of the work directory\n"));
}

}  // namespace
}  // namespace tarvio_test
