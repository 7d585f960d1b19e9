#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/log_capture.h"
#include "support/operands.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kUnit[] = "package/tq_tbx_package_binding";

class Remove : public testing::Test {
 protected:
  ~Remove() override {
    ::unsetenv("OPKG_OPTIONS");
    ::unsetenv("OPKG_FORCE_OPTIONS");
  }
};

TEST_F(Remove, RunsOpkgWithTheName) {
  const Tool opkg("opkg", "");
  EXPECT_EQ(tq_tbx_remove("app", 0), 0);
  EXPECT_EQ(opkg.runs(), "remove app\n");
}

TEST_F(Remove, ReturnsWhatOpkgPrinted) {
  for (const auto& [line, code] : {std::pair{"No packages removed.", 65},
                                   {"is depended upon by packages", 10302},
                                   {"Permission denied.", 13},
                                   {"Removing package app from root...", 0}}) {
    const Tool opkg("opkg", std::string("echo '") + line + "'; exit 1");
    EXPECT_EQ(tq_tbx_remove("app", 0), code) << line;
  }
}

TEST_F(Remove, PassesOptionsFromTheEnvironmentBeforeTheCommand) {
  const Tool opkg("opkg", "");
  ::setenv("OPKG_OPTIONS", "-V2 -f /etc/x.conf", 1);
  tq_tbx_remove("app", 0);
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  tq_tbx_remove("app", 0);
  ::unsetenv("OPKG_OPTIONS");
  tq_tbx_remove("app", 0);
  EXPECT_EQ(opkg.runs(),
            "-V2 -f /etc/x.conf remove app\n-V2 -f /etc/x.conf --force-space remove app\n"
            "--force-space remove app\n");
}

TEST_F(Remove, WithForceUsesTheFixedForceOptionAlone) {
  const Tool opkg("opkg", "");
  tq_tbx_remove("app", 1);
  ::setenv("OPKG_OPTIONS", "-V2", 1);
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  tq_tbx_remove("app", -1);
  EXPECT_EQ(opkg.runs(), "--force-depends remove app\n-V2 --force-depends remove app\n");
}

TEST_F(Remove, LogsTheOptionsThatItReads) {
  const Tool opkg("opkg", "");
  ::setenv("OPKG_OPTIONS", "-V2", 1);
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  for (const int force : {0, 1}) {
    const LogCapture log(TQ_LOG_DEBUG);
    tq_tbx_remove("app", force);
    EXPECT_THAT(unit_messages(log, kUnit),
                ElementsAre("debug: tq_tbx_remove: options=[-V2] ",
                            "debug: tq_tbx_remove: force options=[--force-space] "));
  }
}

TEST_F(Remove, GoesToTheOfflineRootWhereTheSystemDoesNotRunFromItsOwn) {
  const Tool opkg("opkg", "");
  write_kernel_command_line("root=/dev/mtdblock5\n");
  tq_tbx_remove("app", 1);
  write_kernel_command_line("root=/dev/mtdblock4\n");
  EXPECT_EQ(opkg.runs(), "--force-depends remove app --offline-root=/mnt/root\n");
}

TEST_F(Remove, NeedsAName) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_tbx_remove(nullptr, 1), -1);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_remove: opkg remove [(null)] "));
}

TEST_F(Remove, RefusesANameWithAShellMetacharacter) {
  const Tool opkg("opkg", "");
  for (const std::string& name : refused_operands()) {
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(tq_tbx_remove(name.c_str(), 1), EINVAL) << name;
    EXPECT_THAT(unit_messages(log, kUnit),
                ElementsAre(StartsWith("warning: tq_tbx_remove: " + name + ": ")));
  }
  EXPECT_EQ(opkg.runs(), "");
}

TEST_F(Remove, TakesEveryOtherName) {
  for (const std::string& name : taken_operands()) {
    const Tool opkg("opkg", "");
    EXPECT_EQ(tq_tbx_remove(name.c_str(), 0), 0);
    EXPECT_EQ(opkg.runs(), "remove " + name + "\n");
  }
}

TEST_F(Remove, WithoutMemoryReturns12) {
  const Tool opkg("opkg", "");
  ::setenv("OPKG_OPTIONS", "-V2", 1);
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const LogCapture log(TQ_LOG_DEBUG);
    const FailAlloc fail(n);
    const int result = tq_tbx_remove("app", 0);
    happened = fail.happened();
    EXPECT_EQ(result, happened ? ENOMEM : 0) << n;
    const std::vector<std::string> messages = unit_messages(log, kUnit);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "debug: tq_tbx_remove: malloc error "),
              n <= 2 ? 1 : 0);
  }
  EXPECT_GT(n, 3);
}

}  // namespace
}  // namespace tarvio_test
