// How the check of a size runs its tools, and what it leaves.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "package_size.h"
#include "support/children.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/interruption.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "package/tq_tbx_package_binding";

TEST_F(SizeCheck, UsesTheRealDf) {
  build(100, 2000);
  FILE* df = ::popen("df | awk 'NR == 2 { print $4 }'", "r");
  long long blocks = 0;
  ASSERT_EQ(std::fscanf(df, "%lld", &blocks), 1);
  ::pclose(df);
  const auto bytes = static_cast<int32_t>(static_cast<uint32_t>(blocks * 1024));
  EXPECT_EQ(check(), bytes >= 2100 ? 0 : -1);
}

TEST_F(SizeCheck, UnpacksWithArWithoutAShell) {
  const Tool ar("ar", "exit 3");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_tbx_check_file_size("a b;$(id).tbx"), 3);
  EXPECT_EQ(ar.runs(), "x a b;$(id).tbx\n");
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: tbx extract error - 3 "));
}

TEST_F(SizeCheck, ReturnsHowArEnds) {
  const Redirect errors(STDERR_FILENO, "/dev/null");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(check(), 9);  // no such file
  write_file("app.tbx", "text");
  EXPECT_EQ(check(), 1);  // not an archive
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: tbx extract error - 9 ",
                          "debug: tq_tbx_check_file_size: tbx extract error - 1 "));
  const Tool killed("ar", "kill -9 $$");
  EXPECT_EQ(check(), 9);
}

TEST_F(SizeCheck, FailsInAProcessThatIgnoresSigchld) {
  build(100, 2000);
  ::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(check_with_free(1 << 20), ECHILD);
  ::signal(SIGCHLD, SIG_DFL);
  EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
}

TEST_F(SizeCheck, RunsTheToolsByTheirNames) {
  build(1, 1);
  std::vector<std::string> commands;
  Hook popen("popen", [&](const char* command, const char* mode) {
    commands.emplace_back(command);
    return ::popen(command, mode);
  });
  check();
  EXPECT_THAT(commands, ElementsAre("tar ztvf control.tar.gz", "tar ztvf data.tar.gz", "df"));
}

TEST_F(SizeCheck, ReadsOnAfterASignal) {
  build(1, 1);
  const Interruption interruption;
  const std::string interrupt = Interruption::commands();
  {
    const Tool df("df", df_of("1"));
    const Tool tar("tar", "[ $2 = control.tar.gz ] || echo -rw root/root 1000 date time name; " +
                              interrupt + "echo -rw root/root 2000 date time name");
    EXPECT_EQ(check(), -1);
    EXPECT_EQ(Interruption::count, 2);
  }
  const Tool df("df", "echo heading; " + interrupt + "echo a 1 1 100 1% /");
  EXPECT_EQ(check(), 0);
  EXPECT_EQ(Interruption::count, 3);
}

TEST_F(SizeCheck, FailsWhenAToolCannotBeStarted) {
  build(0, 0);
  const Tool df("df", df_of("1000"));
  for (int failing = 1; failing <= 3; ++failing) {
    int call = 0;
    Hook popen("popen", [&](const char* command, const char* mode) -> FILE* {
      return ++call == failing ? nullptr : ::popen(command, mode);
    });
    EXPECT_EQ(check(), -1);
    EXPECT_EQ(call, failing);
  }
}

TEST_F(SizeCheck, FailsWhenAToolsOutputCannotBeRead) {
  build(1, 1);
  const Tool df("df", df_of("1000"));
  bool happened = true;
  for (int failing = 1; happened; ++failing) {
    int call = 0;
    Hook read("read", [&](int fd, void* buffer, size_t size) -> ssize_t {
      if (++call != failing) return ::read(fd, buffer, size);
      errno = EIO;
      return -1;
    });
    const int result = check();
    happened = call >= failing;
    EXPECT_EQ(result, happened ? -1 : 0) << failing;
  }
}

TEST_F(SizeCheck, FailsWithoutMemory) {
  build(1, 1);
  const Tool df("df", df_of("1000"));
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const FailAlloc fail(n);
    const int result = check();
    happened = fail.happened();
    EXPECT_EQ(result, happened ? -1 : 0) << n;
    EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
  }
  EXPECT_EQ(n, 8);  // two for each of three lines; the seventh run succeeds
}

TEST_F(SizeCheck, RemovesItsThreeMembersInEveryCase) {
  build(100, 2000);
  const Redirect errors(STDERR_FILENO, "/dev/null");
  const auto leaves_nothing = [&](const std::string& path) {
    for (const char* member : {"control.tar.gz", "data.tar.gz", "debian-binary"}) {
      write_file(member, "from before");
    }
    tq_tbx_check_file_size(path.c_str());
    EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
  };
  leaves_nothing("app.tbx");
  leaves_nothing("missing.tbx");
  {
    const Tool df("df", "true");
    leaves_nothing("app.tbx");
  }
  {
    const Tool df("df", df_of("3000000"));
    leaves_nothing("app.tbx");
  }
  const Tool tar("tar", "echo one");
  leaves_nothing("app.tbx");
}

TEST_F(SizeCheck, RemovesNothingWithoutAPath) {
  write_file("data.tar.gz", "from before");
  tq_tbx_check_file_size(nullptr);
  EXPECT_TRUE(work_.has("data.tar.gz"));
}

TEST_F(SizeCheck, EndsWhileAToolIsStillPrinting) {
  build(1, 1);
  const Tool tar("tar", "echo one; while echo two words; do :; done");
  EXPECT_EQ(check(), -1);
}

TEST_F(SizeCheck, LeavesNoDescriptorOpen) {
  build(1, 1);
  const Descriptors before = open_descriptors();
  check();
  const Tool tar("tar", "echo one");
  check();
  EXPECT_THAT(opened_since(before), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
