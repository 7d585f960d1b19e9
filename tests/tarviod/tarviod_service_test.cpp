// The service files of tarviod.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/files.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

const std::string kPackaging = TARVIO_SANDBOX_TOOLS "/../../packaging/";

// The init script, with a start-stop-daemon that finds the manager as many times as the file "left"
// says, and a sleep that leaves a mark in place of waiting.
class InitScript : public testing::Test {
 protected:
  InitScript() {
    write_program(directory_ / "start-stop-daemon",
                  "#!/bin/sh\nread -r left <" + left_ +
                      "\n[ $left -gt 0 ] && echo $((left - 1)) >" + left_ + "\n");
    write_program(directory_ / "sleep", "#!/bin/sh\nprintf . >>" + sleeps_ + "\n");
    write_file(sleeps_, "");
  }
  // The exit status of `tarviod stop`.
  int stop(int signals_received) {
    write_file(left_, std::to_string(signals_received) + "\n");
    const std::string command = "PATH=" + directory_.path().string() + ":$PATH sh " + kPackaging +
                                "init.d/tarviod.in stop 2>" + errors_;
    return WEXITSTATUS(std::system(command.c_str()));
  }
  size_t seconds_waited() const { return read_file(sleeps_).size(); }
  std::string errors() const { return read_file(errors_); }

 private:
  const TempDir directory_;
  const std::string left_ = directory_ / "left";
  const std::string sleeps_ = directory_ / "sleeps";
  const std::string errors_ = directory_ / "errors";
};

TEST_F(InitScript, WaitsAsLongAsTheManagerIsStopping) {
  EXPECT_EQ(stop(20), 0);
  EXPECT_EQ(seconds_waited(), 19U);
  EXPECT_EQ(errors(), "");
}

TEST_F(InitScript, WaitsLongerThanTheManagerDoesForEachPackage) {
  for (int package = 0; package < 100; ++package)
    install_package("p" + std::to_string(package), "Application");
  EXPECT_EQ(stop(1000), 1);
  EXPECT_GT(seconds_waited(), 30U + 2 * 100);
  EXPECT_LT(seconds_waited(), 30U + 2 * 100 + 30);
  EXPECT_EQ(errors(), "tarviod does not stop\n");
}

// Its manager ends the wait itself, after a time that depends on the applications.
TEST(SystemdService, SetsNoLimitToTheStop) {
  EXPECT_THAT(read_file(kPackaging + "systemd/tarviod.service.in"),
              testing::HasSubstr("\nTimeoutStopSec=infinity\n"));
}

}  // namespace
}  // namespace tarvio_test
