// tarvio status, against a manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/com/manager.h"
#include "support/com/one_reply.h"
#include "support/com/sockets.h"
#include "support/programs/tarvio.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr char kTruncated[] =
    "tarvio: the manager's reply is truncated or garbled; statuses may be missing\n";

void add_status(const char* name, int32_t state, const char* detail, int32_t type = 0) {
  tq_status* record = tq_add_tq_status(state, type, name, detail);
  EXPECT_EQ(tq_set_status2(record, 1), 0);
}

void add_statuses() {
  add_status("clock", 0, "started app");
  add_status("webserver", 2, "start app failed.");
  add_status("radio", 1, "low signal");
  add_status("disk", 0, "", 5);  // not an application
}

class ClientStatus : public testing::Test {
 protected:
  const ManagerProcess manager_{{}, add_statuses};
};

TEST_F(ClientStatus, IsATable) {
  const Ran run = run_tarvio({"status"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output,
            "NAME       STATE    DETAIL\n"
            "clock      normal   started app\n"
            "webserver  error    start app failed.\n"
            "radio      warning  low signal\n"
            "disk       normal\n");
  EXPECT_EQ(run.errors, "");
}

TEST_F(ClientStatus, IsJsonForScripts) {
  const Ran run = run_tarvio({"status", "--json"});
  EXPECT_EQ(run.status, 0);
  const json statuses = json::parse(run.output);
  ASSERT_EQ(statuses.size(), 4U);
  EXPECT_EQ(
      statuses[2],
      json({{"name", "radio"}, {"state", "warning"}, {"state_code", 1}, {"detail", "low signal"}}));
}

TEST_F(ClientStatus, CanBeForApplicationsOnly) {
  EXPECT_THAT(run_tarvio({"status", "--apps"}).output, Not(HasSubstr("disk")));
  EXPECT_THAT(run_tarvio({"status", "--apps"}).output, HasSubstr("radio"));
  EXPECT_EQ(run_tarvio({"status", "--apps", "disk"}).status, 12);
}

TEST_F(ClientStatus, OfANameEndsWithItsState) {
  EXPECT_EQ(run_tarvio({"status", "clock"}).status, 0);
  EXPECT_EQ(run_tarvio({"status", "radio"}).status, 10);
  EXPECT_EQ(run_tarvio({"status", "webserver"}).status, 11);
  EXPECT_EQ(run_tarvio({"status", "webserver"}).output,
            "NAME       STATE  DETAIL\n"
            "webserver  error  start app failed.\n");
}

TEST_F(ClientStatus, OfANameIsOneJsonObject) {
  const Ran run = run_tarvio({"status", "webserver", "--json"});
  EXPECT_EQ(run.status, 11);
  EXPECT_EQ(json::parse(run.output)["detail"], "start app failed.");
}

TEST_F(ClientStatus, NeedsTheExactName) {
  for (const char* name : {"web", "webserver2", "Webserver"}) {
    const Ran run = run_tarvio({"status", name});
    EXPECT_EQ(run.status, 12);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "tarvio: no status for '" + std::string(name) +
                              "': not started, or not an exact name\n");
  }
}

TEST(ClientStatusOfNothing, SaysSo) {
  const ManagerProcess manager({});
  const Ran run = run_tarvio({"status"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: no statuses\n");
}

TEST(ClientStatusOfNothing, IsAnEmptyArrayForScripts) {
  const ManagerProcess manager({});
  const Ran run = run_tarvio({"status", "--json"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(json::parse(run.output), json::array());
  EXPECT_EQ(run.errors, "");
}

TEST(ClientStatusRequest, IsTheCommandAlone) {
  OneReply all("");
  EXPECT_EQ(run_tarvio({"status", "clock"}).status, 12);
  EXPECT_EQ(all.request(), "status_all\n");
}

TEST(ClientStatusRequest, MayBeForApplications) {
  OneReply apps("");
  EXPECT_EQ(run_tarvio({"status", "--apps"}).status, 0);
  EXPECT_EQ(apps.request(), "status_app\n");
}

TEST(ClientStatusReplyFromAStranger, CannotDriveTheTerminal) {
  const OneReply manager("a\x1b[2J\n0\n\x9b\r\xff\n");
  const Ran run = run_tarvio({"status"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output,
            "NAME      STATE   DETAIL\n"
            "a\\x1b[2J  normal  \\x9b\\x0d\\xff\n");
}

TEST(ClientStatusReplyFromAStranger, IsValidJson) {
  const OneReply manager("a\xff\n0\n\x1b\n");
  EXPECT_EQ(
      json::parse(run_tarvio({"status", "--json"}).output),
      json::array(
          {{{"name", "a\ufffd"}, {"state", "normal"}, {"state_code", 0}, {"detail", "\x1b"}}}));
}

TEST(ClientStatusReplyFromAStranger, MayHaveAnUnknownState) {
  const OneReply manager("clock\n7\nodd\n");
  const Ran run = run_tarvio({"status", "clock"});
  EXPECT_EQ(run.status, 10);
  EXPECT_EQ(run.output, "NAME   STATE  DETAIL\nclock  7      odd\n");
}

TEST(ClientStatusReplyFromAStranger, MayHaveLinesOfAnyLength) {
  const std::string detail(300'000, 'x');
  const OneReply manager("clock\n0\n" + detail + "\nweb\n0\nok\n");
  const json statuses = json::parse(run_tarvio({"status", "--json"}).output);
  ASSERT_EQ(statuses.size(), 2U);
  EXPECT_EQ(statuses[0]["detail"], detail);
  EXPECT_EQ(statuses[1]["name"], "web");
}

TEST(ClientTruncatedStatusReply, ShowsWhatCame) {
  const OneReply manager("clock\n0\nok\nweb\n2\nbro");
  const Ran run = run_tarvio({"status"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output,
            "NAME   STATE   DETAIL\n"
            "clock  normal  ok\n"
            "web    error   bro\n");
  EXPECT_EQ(run.errors, kTruncated);
}

TEST(ClientTruncatedStatusReply, ShowsTheNameThatWasAskedFor) {
  const OneReply manager("clock\n0\nok\nweb\n2\n");
  const Ran run = run_tarvio({"status", "clock"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "NAME   STATE   DETAIL\nclock  normal  ok\n");
  EXPECT_EQ(run.errors, kTruncated);
}

TEST(ClientTruncatedStatusReply, DoesNotDenyWhatMayHaveBeenInTheRest) {
  const OneReply manager("clock\n0\nok\nweb\n");
  const Ran run = run_tarvio({"status", "web"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, kTruncated);
}

TEST(ClientTruncatedStatusReply, IsNotAnEmptyList) {
  const OneReply manager("clock\n");
  const Ran run = run_tarvio({"status", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, kTruncated);
}

}  // namespace
}  // namespace tarvio_test
