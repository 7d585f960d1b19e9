// A broker that is killed or stands still, and a network that is cut.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/owners.h"
#include "board.h"
#include "support/apps/applications.h"
#include "support/programs/tarvio.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;

constexpr std::chrono::milliseconds kAWhile{1500};
// A connection that was lost comes back within 30 s.
constexpr std::chrono::milliseconds kComesBack{50'000};

// The one link of the sandbox.
void set_link(bool up) {
  const tarvio::Fd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq link = {};
  std::strcpy(link.ifr_name, "lo");
  link.ifr_flags = static_cast<short>(up ? IFF_UP | IFF_RUNNING : 0);
  ASSERT_EQ(::ioctl(fd.get(), SIOCSIFFLAGS, &link), 0) << std::strerror(errno);
}

// An application whose stop takes a second, which a request is about.
class AgentNetwork : public WithBoard {
 protected:
  using WithBoard::WithBoard;

  void SetUp() override {
    install_application("clock");
    slow_the_stop_of("clock");
    ASSERT_TRUE(manager_.answers());
    ASSERT_TRUE(is_online());
    ASSERT_EQ(ask("start", "start", {{"app", "clock"}})["state"], "done");
    process_of("clock");
  }
  void begin_stop() {
    send(request("stop", "stop", {{"app", "clock"}}));
    ASSERT_TRUE(eventually([] { return was_stopped("clock"); }));
  }
  // The board's answers that this one sees.
  static size_t answers(const Watcher& watcher) { return watcher.count_of(topic("answer/ann")); }

  Tarviod manager_;
};

TEST_F(AgentNetwork, MayLoseItsBrokerInTheMiddleOfARequest) {
  begin_stop();
  broker_.kill();
  ASSERT_TRUE(agent_.program().says("is lost"));
  broker_.start();
  Watcher later(plain_broker(), "later");
  ASSERT_TRUE(later.until([&] { return answers(later) == 1; }, kComesBack));
  EXPECT_EQ(later.json_of(topic("answer/ann"))["state"], "done");
  later.watch(kAWhile);
  EXPECT_EQ(answers(later), 1U);
  EXPECT_EQ(later.text_of(topic("online")), R"({"online":true})");
}

// The answer is on its way to it, and nobody knows whether it has come.
TEST_F(AgentNetwork, MayLoseItsBrokerBeforeItHasTakenTheAnswer) {
  begin_stop();
  broker_.stop();
  const std::string journal = agent_.directory() / "journal";
  ASSERT_TRUE(eventually(
      [&] { return read_file(journal).find("{\"finished\":\"stop\"") != std::string::npos; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  broker_.kill();
  broker_.start();
  Watcher later(plain_broker(), "later");
  ASSERT_TRUE(later.until([&] { return answers(later) == 1; }, kComesBack));
  later.watch(kAWhile);
  EXPECT_EQ(answers(later), 1U);
  EXPECT_TRUE(eventually(
      [&] { return read_file(journal).find("{\"delivered\":\"stop\"") != std::string::npos; }));
}

TEST_F(AgentNetwork, MayStandStill) {
  begin_stop();
  set_link(false);
  std::this_thread::sleep_for(kAWhile);
  set_link(true);
  EXPECT_EQ(answer_to("stop")["state"], "done");
  watcher_.watch(kAWhile);
  size_t count = 0;
  for (const fleet::Message& message : watcher_.messages()) {
    if (message.payload.find(R"("id":"stop")") != std::string::npos &&
        message.topic == topic("answer/ann")) {
      ++count;
    }
  }
  EXPECT_EQ(count, 1U);
}

// Between the board and its broker, of which the broker's other connections know nothing. Its end
// resets the connection.
class AgentBehindAProxy : public AgentNetwork {
 protected:
  AgentBehindAProxy() : AgentNetwork("broker: 127.0.0.1:18831\ntls: no\n") { start_proxy(); }

  void start_proxy() {
    proxy_ = std::make_unique<BackgroundProgram>(std::vector<std::string>{
        "socat", "TCP-LISTEN:18831,reuseaddr,linger=0", "TCP:127.0.0.1:18830,linger=0"});
  }
  void reset_connection() {
    proxy_->kill();
    ASSERT_TRUE(agent_.program().says("is lost"));
    start_proxy();
  }
  void expect_one_answer() {
    ASSERT_TRUE(watcher_.until([this] { return answers(watcher_) == 2; }, kComesBack));
    EXPECT_EQ(answer_to("stop")["state"], "done");
    watcher_.watch(kAWhile);
    EXPECT_EQ(answers(watcher_), 2U);  // with that to the start
  }

  std::unique_ptr<BackgroundProgram> proxy_ = nullptr;
};

TEST_F(AgentBehindAProxy, MayBeCutOffInTheMiddleOfARequest) {
  begin_stop();
  reset_connection();
  expect_one_answer();
}

TEST_F(AgentBehindAProxy, MayBeCutOffInTheMiddleOfAnAnswer) {
  begin_stop();
  proxy_->send(SIGSTOP);
  const std::string journal = agent_.directory() / "journal";
  ASSERT_TRUE(eventually(
      [&] { return read_file(journal).find("{\"finished\":\"stop\"") != std::string::npos; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  reset_connection();
  expect_one_answer();
}

// Of a broker that takes only short messages, as some do.
TEST(AgentWithASmallBroker, LeavesOutWhatIsTooLong) {
  use_built_programs();
  BrokerProcess broker("listener 18830 127.0.0.1\nallow_anonymous true\nmax_packet_size 2000\n");
  for (int number = 0; number < 20; ++number) install_application("app" + std::to_string(number));
  Watcher watcher;
  AgentProcess agent;
  ASSERT_TRUE(agent.program().says("connected to the broker"));
  watcher.publish({.topic = "tarvio/v1/board-1/request",
                   .payload = R"({"id":"r1","command":"list","expires_in":60})",
                   .response_topic = "tarvio/v1/board-1/answer/ann"});
  ASSERT_TRUE(watcher.until([&] { return watcher.count_of("tarvio/v1/board-1/answer/ann") == 1; }))
      << agent.program().errors();
  const Json answer = watcher.json_of("tarvio/v1/board-1/answer/ann");
  EXPECT_EQ(answer["state"], "done");
  EXPECT_EQ(answer["note"], "its result is too long for the broker");
  EXPECT_FALSE(answer.contains("result"));
  EXPECT_THAT(agent.program().errors(), HasSubstr("is longer than the broker takes"));
  EXPECT_FALSE(agent.program().has_ended());
}

}  // namespace
}  // namespace tarvio_test
