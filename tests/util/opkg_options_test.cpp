#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/files.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/packages/opkg_tool.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/opkg.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "util/tq_opkg_util";
constexpr char kOffline[] = "console=ttyAMA0 root=/dev/mtdblock5 rw\n";

class OpkgWithOptions : public testing::Test {
 protected:
  // The command line that the library says it runs.
  static std::string logged_line(const LogCapture& log) {
    const std::string before = "debug: tq_opkg_run_command_with_options: cmd=[";
    for (const std::string& message : unit_messages(log, kUnit))
      if (message.starts_with(before))
        return message.substr(before.size(), message.size() - before.size() - 2);
    return "none";
  }

  const OpkgTool opkg_;
  const LogCapture log_{TQ_LOG_DEBUG};
};

TEST_F(OpkgWithOptions, PutsNothingBetweenWithoutOptions) {
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", nullptr, nullptr, "pkg"), 0);
  EXPECT_EQ(logged_line(log_), "opkg remove pkg");
  EXPECT_THAT(opkg_.arguments(), ElementsAre("remove", "pkg"));
}

TEST_F(OpkgWithOptions, PutsTheForceOptionsFirst) {
  tq_opkg_run_command_with_options("remove", nullptr, "--force-a --force-b", "pkg");
  EXPECT_EQ(logged_line(log_), "opkg --force-a --force-b remove pkg");
  EXPECT_THAT(opkg_.arguments(), ElementsAre("--force-a", "--force-b", "remove", "pkg"));
}

TEST_F(OpkgWithOptions, PutsTheOptionsBeforeTheForceOptions) {
  tq_opkg_run_command_with_options("install", "-V0", "--force-a", "/tmp/a.ipk");
  EXPECT_EQ(logged_line(log_), "opkg -V0 --force-a install /tmp/a.ipk");
  EXPECT_THAT(opkg_.arguments(), ElementsAre("-V0", "--force-a", "install", "/tmp/a.ipk"));
}

TEST_F(OpkgWithOptions, PutsTheOptionsFirstWithoutForceOptions) {
  tq_opkg_run_command_with_options("install", "-V0", nullptr, "/tmp/a.ipk");
  EXPECT_EQ(logged_line(log_), "opkg -V0 install /tmp/a.ipk");
  EXPECT_THAT(opkg_.arguments(), ElementsAre("-V0", "install", "/tmp/a.ipk"));
}

TEST_F(OpkgWithOptions, KeepsTheBlanksOfAnEmptyOption) {
  tq_opkg_run_command_with_options("install", "", "", "a.ipk");
  EXPECT_EQ(logged_line(log_), "opkg   install a.ipk");
}

TEST_F(OpkgWithOptions, AddsTheOfflineRootAtTheEnd) {
  write_kernel_command_line(kOffline);
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", "-V0", nullptr, "pkg"), 0);
  EXPECT_EQ(logged_line(log_), "opkg -V0 remove pkg --offline-root=/mnt/root");
  EXPECT_THAT(opkg_.arguments(), ElementsAre("-V0", "remove", "pkg", "--offline-root=/mnt/root"));
}

TEST_F(OpkgWithOptions, TakesABootTestThatFailsForOnline) {
  write_kernel_command_line("");
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", nullptr, nullptr, "pkg"), 0);
  EXPECT_EQ(logged_line(log_), "opkg remove pkg");
  EXPECT_TRUE(log_.contains(TQ_LOG_DEBUG, kUnit, "opkg online check result - 1."));
}

TEST_F(OpkgWithOptions, ReturnsTheCodeOfTheComplaint) {
  opkg_.prints("No packages removed.\n");
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", nullptr, nullptr, "pkg"), ENOPKG);
}

TEST_F(OpkgWithOptions, LogsItsSteps) {
  tq_opkg_run_command_with_options("remove", nullptr, nullptr, "pkg");
  EXPECT_THAT(unit_messages(log_, kUnit),
              ElementsAre("debug: opkg online check result - 1.",
                          "debug: tq_opkg_run_command_with_options: cmd=[opkg remove pkg] ",
                          "debug: return error code is 0"));
}

TEST_F(OpkgWithOptions, LogsItsStepsOfflineAndItsFailure) {
  write_kernel_command_line(kOffline);
  opkg_.prints("No packages removed.\n");
  tq_opkg_run_command_with_options("remove", nullptr, nullptr, "pkg");
  EXPECT_THAT(unit_messages(log_, kUnit),
              ElementsAre("debug: opkg online check result - 0.", "debug: offline root setting",
                          "debug: tq_opkg_run_command_with_options: "
                          "cmd=[opkg remove pkg --offline-root=/mnt/root] ",
                          "debug: return error code is 65", "info: No packages removed.",
                          "debug: tq_opkg_run_command: run command error - 65 ",
                          "debug: tq_opkg_run_command_with_options: remove command exec error "));
}

// "opkg remove " and " --offline-root=/mnt/root" have 37 characters.
TEST_F(OpkgWithOptions, RunsAnOfflineLineOf255Characters) {
  write_kernel_command_line(kOffline);
  const std::string target(218, 'p');
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", nullptr, nullptr, target.c_str()), 0);
  EXPECT_EQ(logged_line(log_).size(), 255U);
  EXPECT_THAT(opkg_.arguments(), ElementsAre("remove", target, "--offline-root=/mnt/root"));
}

TEST_F(OpkgWithOptions, RefusesAnOfflineLineOf256Characters) {
  write_kernel_command_line(kOffline);
  const std::string target(219, 'p');
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", nullptr, nullptr, target.c_str()),
            ENAMETOOLONG);
  EXPECT_THAT(opkg_.arguments(), IsEmpty());
  EXPECT_THAT(unit_messages(log_, kUnit),
              ElementsAre("debug: opkg online check result - 0.", "debug: offline root setting",
                          "warning: tq_opkg_run_command_with_options: offline command line of 256 "
                          "characters is too long, at most 255: opkg remove " +
                              target));
}

TEST_F(OpkgWithOptions, RunsALineOfAnyLengthOnline) {
  const std::string target(5000, 'p');
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", nullptr, nullptr, target.c_str()), 0);
  EXPECT_THAT(opkg_.arguments(), ElementsAre("remove", target));
}

TEST_F(OpkgWithOptions, NeedsAWordAndATarget) {
  EXPECT_EQ(tq_opkg_run_command_with_options(nullptr, "a", "b", "pkg"), -1);
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", "a", "b", nullptr), -1);
  const std::string message = "debug: tq_opkg_run_command_with_options: parameter is null ";
  EXPECT_THAT(unit_messages(log_, kUnit), ElementsAre(message, message));
  EXPECT_THAT(opkg_.arguments(), IsEmpty());
}

int no_asprintf(char**, const char*, ...) {
  errno = ENOMEM;
  return -1;
}

TEST_F(OpkgWithOptions, WithoutMemoryForTheLineReturns12) {
  // A hardened library calls the checked function, which has a further argument.
  const Hook asprintf(library_imports("asprintf") ? "asprintf" : "__asprintf_chk", &no_asprintf);
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", nullptr, nullptr, "pkg"), ENOMEM);
  EXPECT_THAT(unit_messages(log_, kUnit),
              ElementsAre("debug: tq_opkg_run_command_with_options: malloc error "));
  EXPECT_THAT(opkg_.arguments(), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
