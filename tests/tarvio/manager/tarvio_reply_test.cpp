// How the client reads what the manager sends.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "manager/manager_reply.h"

namespace client {
namespace {

using Statuses = std::vector<Status>;

TEST(ClientStatusReply, HasThreeLinesPerStatus) {
  const StatusReply reply = parse_statuses("clock\n0\nstarted app\nweb\n2\n\n");
  EXPECT_TRUE(reply.complete);
  EXPECT_EQ(reply.statuses, (Statuses{{"clock", 0, "started app"}, {"web", 2, ""}}));
}

TEST(ClientStatusReply, MayBeEmpty) {
  const StatusReply reply = parse_statuses("");
  EXPECT_TRUE(reply.complete);
  EXPECT_TRUE(reply.statuses.empty());
}

TEST(ClientStatusReply, EndsLinesAtLineFeedsOnly) {
  const std::string detail(100'000, 'x');
  const StatusReply reply = parse_statuses("a\rb\n0\n\r" + detail + "\r\nweb\n1\nlow\n");
  EXPECT_TRUE(reply.complete);
  EXPECT_EQ(reply.statuses, (Statuses{{"a\rb", 0, "\r" + detail + "\r"}, {"web", 1, "low"}}));
}

TEST(ClientStatusReply, KeepsNumbersThatAreNotAKnownState) {
  EXPECT_EQ(parse_statuses("a\n-2147483648\n\n").statuses, (Statuses{{"a", -2147483647 - 1, ""}}));
}

struct Truncated {
  std::string bytes;
  Statuses kept;
};

TEST(ClientStatusReply, KeepsWhatCameBeforeATruncation) {
  const std::vector<Truncated> cases = {
      {"clock", {}},
      {"clock\n", {}},
      {"clock\n2", {}},  // the rest of the number may be missing
      {"clock\n2\n", {{"clock", 2, ""}}},
      {"clock\n2\nhalf a det", {{"clock", 2, "half a det"}}},
      {"clock\n0\nok\nweb\n", {{"clock", 0, "ok"}}},
      {"clock\n0\nok\n\n", {{"clock", 0, "ok"}}},
  };
  for (const Truncated& each : cases) {
    const StatusReply reply = parse_statuses(each.bytes);
    EXPECT_FALSE(reply.complete) << each.bytes;
    EXPECT_EQ(reply.statuses, each.kept) << each.bytes;
  }
}

TEST(ClientStatusReply, StopsAtAStateThatIsNotANumber) {
  for (const char* state : {"", "normal", "0x", " 0", "+1", "1 ", "2147483648", "0\r"}) {
    const StatusReply reply =
        parse_statuses("clock\n0\nok\nweb\n" + std::string(state) + "\nx\nlast\n0\ny\n");
    EXPECT_FALSE(reply.complete) << state;
    EXPECT_EQ(reply.statuses, (Statuses{{"clock", 0, "ok"}})) << state;
  }
}

TEST(ClientResultReply, HasOneOrTwoLineFeeds) {
  EXPECT_EQ(parse_result_code("0\n\n"), 0);
  EXPECT_EQ(parse_result_code("0\n"), 0);
  EXPECT_EQ(parse_result_code("10101\n\n"), 10101);
  EXPECT_EQ(parse_result_code("-1\n"), -1);
}

TEST(ClientResultReply, IsNothingElse) {
  for (const char* bytes : {"", "\n", "\n\n", "0", "22", "0\n\n\n", "0\nx", "0\nx\n", "x\n", "0 \n",
                            " 0\n", "0x1\n", "2147483648\n", "0\r\n"}) {
    EXPECT_EQ(parse_result_code(bytes), std::nullopt) << bytes;
  }
}

}  // namespace
}  // namespace client
