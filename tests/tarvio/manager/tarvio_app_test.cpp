// tarvio start, stop, start-all and stop-all, against a manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "support/com/manager.h"
#include "support/com/one_reply.h"
#include "support/packages/package_listing.h"
#include "support/programs/tarvio.h"
#include "tarvio/app.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

int succeed(tq_app_info* /*app*/) { return 0; }
int fail(tq_app_info* /*app*/) { return EACCES; }
int fail_once(tq_app_info* /*app*/) {
  static bool has_failed = false;
  return std::exchange(has_failed, true) ? 0 : ENOEXEC;
}

// A manager whose starts and stops have these results, in place of processes.
ManagerProcess manager_with(int (*start)(tq_app_info*), int (*stop)(tq_app_info*)) {
  return ManagerProcess({{"webserver"}, {"clock"}}, [=] {
    linux_app_binding->start = start;
    linux_app_binding->stop = stop;
  });
}

using ClientStart = WithoutPackages;

TEST_F(ClientStart, StartsAnApplicationAndStopStopsIt) {
  const ManagerProcess manager({Application{"clock", "/bin/sleep 1000"}});
  add_package("clock");
  const Ran start = run_tarvio({"start", "clock"});
  EXPECT_EQ(start.status, 0);
  EXPECT_EQ(start.output, "started clock\n");
  EXPECT_EQ(start.errors, "");
  EXPECT_EQ(run_tarvio({"status", "clock"}).status, 0);

  const Ran stop = run_tarvio({"stop", "clock"});
  EXPECT_EQ(stop.status, 0);
  EXPECT_EQ(stop.output, "stopped clock\n");
  EXPECT_EQ(run_tarvio({"status", "clock"}).status, 12);
}

TEST_F(ClientStart, SaysWhenAnotherApplicationMayBeMeant) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  add_package("web");
  add_package("webserver");  // comes first in the order of the manager
  EXPECT_EQ(run_tarvio({"start", "web"}).output,
            "started the first application whose name contains 'web'\n");
  EXPECT_EQ(run_tarvio({"stop", "web"}).output,
            "stopped the first application whose name contains 'web'\n");
  EXPECT_EQ(run_tarvio({"start", "webserver"}).output, "started webserver\n");
}

TEST_F(ClientStart, SaysThatThereIsNoSuchApplication) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  for (const char* command : {"start", "stop"}) {
    const Ran run = run_tarvio({command, "radio"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "tarvio: cannot " + std::string(command) +
                              " 'radio': no such application (22); see 'tarvio list --category "
                              "application'\n");
  }
}

TEST_F(ClientStart, SaysWhyItFailed) {
  const ManagerProcess manager = manager_with(fail, fail);
  const Ran run = run_tarvio({"start", "clock"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: cannot start 'clock': Permission denied (13)\n");
  EXPECT_EQ(run_tarvio({"status", "clock"}).status, 11);
}

TEST(ClientStop, SaysWhyItFailed) {
  const ManagerProcess manager = manager_with(succeed, fail);
  ASSERT_EQ(run_tarvio({"start", "clock"}).status, 0);
  const Ran run = run_tarvio({"stop", "clock"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: cannot stop 'clock': Permission denied (13)\n");
}

TEST(ClientStartAll, StartsAllAndStopAllStopsThem) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  const Ran start = run_tarvio({"start-all"});
  EXPECT_EQ(start.status, 0);
  EXPECT_EQ(start.output, "started all applications\n");
  EXPECT_EQ(start.errors, "");
  EXPECT_THAT(run_tarvio({"status"}).output, HasSubstr("webserver  normal  started app\n"));

  const Ran stop = run_tarvio({"stop-all"});
  EXPECT_EQ(stop.status, 0);
  EXPECT_EQ(stop.output, "stopped all applications\n");
  EXPECT_EQ(run_tarvio({"status"}).output, "");
}

TEST(ClientStartAll, ReportsThatAnAttemptFailed) {
  const ManagerProcess manager = manager_with(fail_once, fail_once);
  const Ran run = run_tarvio({"start-all"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors,
            "tarvio: start-all: an application failed to start: Exec format error (8)\n");
}

TEST(ClientStopAll, ReportsThatAnAttemptFailed) {
  const ManagerProcess manager = manager_with(succeed, fail_once);
  ASSERT_EQ(run_tarvio({"start-all"}).status, 0);
  const Ran run = run_tarvio({"stop-all"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: stop-all: an application failed to stop: Exec format error (8)\n");
}

TEST(ClientResult, IsJsonForScripts) {
  const ManagerProcess manager = manager_with(succeed, fail_once);
  const Ran start = run_tarvio({"start", "clock", "--json"});
  EXPECT_EQ(start.status, 0);
  EXPECT_EQ(json::parse(start.output),
            json({{"command", "start"}, {"name", "clock"}, {"code", 0}, {"message", "Success"}}));
  EXPECT_EQ(start.errors, "");

  const Ran stop_all = run_tarvio({"stop-all", "--json"});
  EXPECT_EQ(stop_all.status, 1);
  EXPECT_EQ(json::parse(stop_all.output),
            json({{"command", "stop-all"}, {"code", 8}, {"message", "Exec format error"}}));
  EXPECT_THAT(stop_all.errors, HasSubstr("an application failed to stop"));
}

TEST(ClientResult, OfAnUnknownNameIsJsonTooForScripts) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  const Ran run = run_tarvio({"stop", "radio", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(json::parse(run.output), json({{"command", "stop"},
                                           {"name", "radio"},
                                           {"code", 22},
                                           {"message", "no such application"}}));
  EXPECT_THAT(run.errors, HasSubstr("no such application"));
}

struct Exchange {
  std::vector<std::string> line;
  std::string request;
};

TEST(ClientRequest, IsTheCommandAndTheName) {
  const std::vector<Exchange> cases = {
      {{"start", "a b\xff"}, "start_app\na b\xff\n"},
      {{"stop", std::string(254, 'x')}, "stop_app\n" + std::string(254, 'x') + "\n"},
      {{"start-all"}, "start_all\n"},
      {{"stop-all"}, "stop_all\n"},
  };
  for (const Exchange& each : cases) {
    OneReply manager("0\n\n");
    EXPECT_EQ(run_tarvio(each.line).status, 0);
    EXPECT_EQ(manager.request(), each.request);
  }
}

TEST(ClientReply, MayHaveOneLineFeed) {
  const OneReply manager("0\n");
  EXPECT_EQ(run_tarvio({"start", "clock"}).status, 0);
}

TEST(ClientReply, MayHaveACodeWithoutAMeaning) {
  const OneReply manager("10304\n\n");
  EXPECT_EQ(run_tarvio({"start", "clock"}).errors,
            "tarvio: cannot start 'clock': unknown error (10304)\n");
}

TEST(ClientReply, WithoutAResultIsAFailure) {
  for (const char* command : {"start-all", "stop-all"}) {
    const OneReply manager("");
    const Ran run = run_tarvio({command});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "tarvio: the manager closed the connection without a result\n");
  }
}

TEST(ClientReply, ThatIsTruncatedIsAFailure) {
  const OneReply manager("0");  // may be the start of another number
  const Ran run = run_tarvio({"start", "clock", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: the manager's reply is not a result: '0'\n");
}

TEST(ClientReply, OfAStrangerIsShownInShort) {
  const OneReply manager("\x1b[2J" + std::string(1000, 'x'));
  EXPECT_EQ(
      run_tarvio({"start", "clock"}).errors,
      "tarvio: the manager's reply is not a result: '\\x1b[2J" + std::string(36, 'x') + "'\n");
}

}  // namespace
}  // namespace tarvio_test
