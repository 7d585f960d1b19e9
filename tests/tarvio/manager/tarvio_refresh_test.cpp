// tarvio refresh, and the refresh after an installation or a removal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/com/one_reply.h"
#include "support/com/replies.h"
#include "support/files.h"
#include "support/packages/package_listing.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"
#include "support/programs/written_state.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kOneAdded[] = "0\nadded 1\nremoved 0\nchanged 2\n";

TEST(ClientRefresh, SaysWhatHasChanged) {
  OneReply manager(kOneAdded);
  const Ran run = run_tarvio({"refresh"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "refreshed the applications: 1 added, 0 removed, 2 changed\n");
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(manager.request(), "refresh_apps\n");
}

TEST(ClientRefresh, IsJsonForScripts) {
  const OneReply manager(kOneAdded);
  EXPECT_EQ(
      json::parse(run_tarvio({"refresh", "--json"}).output),
      json({{"code", 0}, {"message", "Success"}, {"added", 1}, {"removed", 0}, {"changed", 2}}));
}

TEST(ClientRefresh, SaysWhyItFailed) {
  const OneReply manager("12\n\n");
  const Ran run = run_tarvio({"refresh"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors,
            "tarvio: the manager cannot refresh its applications: Cannot allocate memory (12)\n");
}

TEST(ClientRefresh, OfAnOlderManagerHasARemedy) {
  const OneReply manager("");
  const Ran run = run_tarvio({"refresh"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: the running manager cannot refresh; restart or update tarviod\n");
}

TEST(ClientRefresh, NeedsAWholeReply) {
  for (const char* const reply : {"x\n", "0\nadded 1\n", "0\nadded x\nremoved 0\nchanged 0\n"}) {
    const OneReply manager(reply);
    const Ran run = run_tarvio({"refresh"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "tarvio: the manager's reply to a refresh is truncated or garbled\n");
  }
}

// opkg installs clock 1.0, and removes what it is to.
class ClientRefreshAfterAChange : public WithoutPackages {
 protected:
  ClientRefreshAfterAChange() {
    add_package("ready");
    ::setenv("PATH", (tools_.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
    write_program(tools_ / "opkg",
                  "#!/bin/sh\n"
                  "cd /usr/lib/opkg/info\n"
                  "[ $1 = remove ] && exec rm $2.control $2.tqcontrol\n"
                  "sed s/ready/clock/ ready.control >clock.control\n"
                  "cp ready.tqcontrol clock.tqcontrol\n");
  }

  const HandMadePackage package_;

 private:
  const TempDir tools_;
};

TEST_F(ClientRefreshAfterAChange, MakesAnApplicationKnown) {
  OneReply manager(kOneAdded);
  const Ran run = run_tarvio({"install", package_.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "installed clock 1.0; the manager knows clock now\n");
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(manager.request(), "refresh_apps\n");
}

TEST_F(ClientRefreshAfterAChange, SaysThatTheOldVersionStillRuns) {
  write_state("app\tclock\trunning\t1\t1700000000\t1\t-\t1.0\t0.9\n");
  const OneReply manager(kOneAdded);
  EXPECT_EQ(run_tarvio({"install", package_.path()}).output,
            "installed clock 1.0; the manager knows clock now; 0.9 runs until 'tarvio restart "
            "clock'\n");
}

TEST_F(ClientRefreshAfterAChange, DropsAnApplication) {
  Replies manager({"", "0\nadded 0\nremoved 1\nchanged 0\n"});
  const Ran run = run_tarvio({"remove", "ready"});
  EXPECT_EQ(run.output, "removed ready; the manager has dropped ready\n");
  EXPECT_THAT(manager.requests(), ElementsAre("status_app\n", "refresh_apps\n"));
}

TEST_F(ClientRefreshAfterAChange, IsLeftOutForWhatKeepsRunning) {
  const Ran run = run_tarvio({"remove", "ready", "--keep-running", "--json"});
  EXPECT_EQ(json::parse(run.output)[0]["refreshed"], nullptr);
}

TEST_F(ClientRefreshAfterAChange, IsNothingWithoutAManager) {
  const Ran run = run_tarvio({"install", package_.path(), "--json"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  const json result = json::parse(run.output)[0];
  EXPECT_EQ(result["refreshed"], nullptr);
  EXPECT_EQ(result["message"], "installed clock 1.0");
}

TEST_F(ClientRefreshAfterAChange, IsInJson) {
  const OneReply manager(kOneAdded);
  const json result = json::parse(run_tarvio({"install", package_.path(), "--json"}).output)[0];
  EXPECT_EQ(result["refreshed"], true);
  EXPECT_EQ(result["message"], "installed clock 1.0; the manager knows clock now");
}

TEST_F(ClientRefreshAfterAChange, IsAHintWithAnOlderManager) {
  const OneReply manager("");
  const Ran run = run_tarvio({"install", package_.path(), "--json"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(json::parse(run.output)[0]["refreshed"], false);
  EXPECT_EQ(run.errors,
            "tarvio: the manager was not refreshed for 'clock': it is from before this was "
            "possible; restart tarviod\n");
}

TEST_F(ClientRefreshAfterAChange, DoesNotUndoTheChangeWhenItFails) {
  const OneReply manager("12\n\n");
  const Ran run = run_tarvio({"install", package_.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "installed clock 1.0\n");
  EXPECT_EQ(run.errors,
            "tarvio: the manager was not refreshed for 'clock': Cannot allocate memory; try "
            "'tarvio refresh'\n");
}

}  // namespace
}  // namespace tarvio_test
