// What tarvio start, stop, start-all and stop-all send, and the replies that no manager of ours
// gives.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/com/one_reply.h"
#include "support/com/replies.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

struct Exchange {
  std::vector<std::string> line;
  std::vector<std::string> requests;
};

TEST(ClientRequest, IsTheCommandAndTheName) {
  const std::string long_name(254, 'x');
  const std::vector<Exchange> cases = {
      {{"start", "a b\xff"}, {"status_app\n", "start_exact\na b\xff\n"}},
      {{"stop", long_name}, {"stop_exact\n" + long_name + "\n"}},
      {{"start-all"}, {"status_app\n", "start_all\n"}},
      {{"stop-all"}, {"status_app\n", "stop_all\n"}},
      {{"stop-all", "--timeout", "9"}, {"stop_all\n"}},
  };
  for (const Exchange& each : cases) {
    std::vector<std::string> replies(each.requests.size());
    replies.back() = "0\n\n";
    Replies manager(replies);
    EXPECT_EQ(run_tarvio(each.line).status, 0);
    EXPECT_EQ(manager.requests(), each.requests);
  }
}

TEST(ClientReply, MayHaveOneLineFeed) {
  const OneReply manager("0\n");
  EXPECT_EQ(run_tarvio({"stop", "clock"}).status, 0);
}

TEST(ClientReply, MayHaveACodeWithoutAMeaning) {
  const OneReply manager("10304\n\n");
  EXPECT_EQ(run_tarvio({"stop", "clock"}).errors,
            "tarvio: cannot stop 'clock': unknown error (10304)\n");
}

TEST(ClientReply, WithoutAResultIsAFailure) {
  for (const char* command : {"start-all", "stop-all"}) {
    const Replies manager({"", ""});
    const Ran run = run_tarvio({command});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "tarvio: the manager closed the connection without a result\n");
  }
}

TEST(ClientReply, ThatIsMissingIsAFailureOfAnOlderManagerToo) {
  const Replies manager({"", ""});
  EXPECT_EQ(run_tarvio({"stop", "clock", "--match"}).errors,
            "tarvio: the manager closed the connection without a result\n");
}

TEST(ClientReply, ThatIsTruncatedIsAFailure) {
  const OneReply manager("0");  // may be the start of another number
  const Ran run = run_tarvio({"stop", "clock", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: the manager's reply is not a result: '0'\n");
}

TEST(ClientReply, OfAStrangerIsShownInShort) {
  const OneReply manager("\x1b[2J" + std::string(1000, 'x'));
  EXPECT_EQ(
      run_tarvio({"stop", "clock"}).errors,
      "tarvio: the manager's reply is not a result: '\\x1b[2J" + std::string(36, 'x') + "'\n");
}

}  // namespace
}  // namespace tarvio_test
