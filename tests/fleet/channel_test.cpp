// What the two processes of the agent tell each other.
#include "channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <thread>

#include "outbox.h"

namespace tarvio_test {
namespace {

using agent::Channel;
using agent::ChannelClosed;
using agent::Record;
using testing::ElementsAre;

class AgentChannel : public testing::Test {
 protected:
  AgentChannel() {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    one_ = tarvio::Fd(ends[0]);
    other_ = tarvio::Fd(ends[1]);
  }

  tarvio::Fd one_;
  tarvio::Fd other_;
};

Record wait_for_record(Channel& channel) {
  for (;;) {
    if (auto record = channel.next()) return *record;
    channel.receive();
  }
}

TEST_F(AgentChannel, KeepsRecordsApart) {
  Channel one(std::move(one_));
  Channel other(std::move(other_));
  one.send({"connected"});
  one.send({"requested", std::string("\0\n", 2), "", "x"});
  EXPECT_THAT(wait_for_record(other), ElementsAre("connected"));
  EXPECT_TRUE(other.has_received());
  EXPECT_THAT(wait_for_record(other), ElementsAre("requested", std::string("\0\n", 2), "", "x"));
  EXPECT_FALSE(other.next());
  EXPECT_FALSE(other.has_received());
}

// More than the socket holds, from both at once: neither may wait for the other one.
TEST_F(AgentChannel, TakesInWhatComesWhileItSends) {
  const std::string large(3'000'000, 'x');
  const auto talk = [&](tarvio::Fd socket) {
    Channel channel(std::move(socket));
    for (int count = 0; count < 3; ++count) channel.send({"publish", large});
    for (int count = 0; count < 3; ++count) {
      EXPECT_EQ(wait_for_record(channel).at(1).size(), large.size());
    }
    channel.send({"end"});
    (void)wait_for_record(channel);
  };
  std::thread other(talk, std::move(other_));
  talk(std::move(one_));
  other.join();
}

TEST_F(AgentChannel, EndsWithTheOtherProcess) {
  Channel one(std::move(one_));
  other_.reset();
  EXPECT_THROW(one.receive(), ChannelClosed);
  EXPECT_THROW(one.send({"connected"}), ChannelClosed);
}

// Its reader says so, and goes on with what was begun.
TEST_F(AgentChannel, LosesWhatIsSentWhenTheOtherProcessHasEnded) {
  Channel one(std::move(one_));
  agent::Outbox outbox(one, "board-1");
  outbox.on_connected();
  other_.reset();
  outbox.keep("apps", "[]");
  EXPECT_FALSE(outbox.is_sending());
}

TEST_F(AgentChannel, GoesOnAfterWhatTheBrokerDoesNotTake) {
  Channel one(std::move(one_));
  Channel other(std::move(other_));
  agent::Outbox outbox(one, "board-1");
  outbox.on_connected();
  outbox.answer({.topic = "a", .correlation = ""}, "text", "text", [] { FAIL(); });
  outbox.keep("apps", "[]");
  EXPECT_EQ(wait_for_record(other).at(1), "a");
  EXPECT_EQ(outbox.on_not_taken(), "a");
  EXPECT_EQ(wait_for_record(other).at(1), "tarvio/v1/board-1/apps");
  outbox.on_delivered();
  EXPECT_FALSE(outbox.is_sending());
}

TEST_F(AgentChannel, TakesNothingForARecordThatIsNone) {
  Channel one(std::move(one_));
  EXPECT_EQ(::send(other_.get(), "\xff\xff\xff\xff", 4, 0), 4);
  one.receive();
  EXPECT_THROW((void)one.next(), ChannelClosed);
}

}  // namespace
}  // namespace tarvio_test
