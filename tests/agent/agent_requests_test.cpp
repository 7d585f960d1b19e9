// Requests that come again, from several operators at once, and those that are none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "board.h"
#include "support/apps/applications.h"
#include "support/programs/tarvio.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class AgentRequests : public WithBoard {
 protected:
  void SetUp() override { ASSERT_TRUE(is_online()); }

  void send_as(const std::string& operator_name, const std::string& correlation,
               const std::string& payload) {
    watcher_.publish({.topic = topic("request"),
                      .payload = payload,
                      .response_topic = topic("answer/" + operator_name),
                      .correlation = correlation});
  }
  // The operators and correlations of the answers to a request.
  std::multiset<std::pair<std::string, std::string>> answered(const std::string& id) const {
    std::multiset<std::pair<std::string, std::string>> answered;
    for (const fleet::Message& message : watcher_.messages()) {
      const std::string front = topic("answer/");
      if (!message.topic.starts_with(front) || Json::parse(message.payload)["id"] != id) continue;
      answered.emplace(message.topic.substr(front.size()), message.correlation);
    }
    return answered;
  }
  static int starts() {
    return Json::parse(run_tarvio({"status", "--wide", "--json"}).output)[0]["starts"];
  }
};

TEST_F(AgentRequests, AreAnsweredToEverybodyWhoAsks) {
  install_application("clock");
  slow_the_stop_of("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  ASSERT_EQ(ask("first", "start", {{"app", "clock"}})["state"], "done");
  process_of("clock");
  const std::string restart = request("r1", "restart", {{"app", "clock"}});
  send_as("ann", "c1", restart);
  send_as("bob", "c1", restart);
  send_as("ann", "c2", request("r1", "restart", {{"app", "clock"}}, 30));
  send_as("ann", "c1", restart);
  const std::multiset<std::pair<std::string, std::string>> all = {
      {"ann", "c1"}, {"ann", "c2"}, {"bob", "c1"}};
  EXPECT_TRUE(watcher_.until([&] { return answered("r1") == all; }));
  EXPECT_EQ(starts(), 2);
  // Afterwards as often as they ask.
  for (const char* name : {"ann", "ann", "eve"}) send_as(name, "c3", restart);
  EXPECT_TRUE(watcher_.until([&] { return answered("r1").size() == 6; }));
  EXPECT_EQ(starts(), 2);
}

TEST_F(AgentRequests, AreAnsweredToEverybodyAfterAKill) {
  install_application("clock");
  slow_the_stop_of("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  ASSERT_EQ(ask("first", "start", {{"app", "clock"}})["state"], "done");
  process_of("clock");
  send_as("ann", "c1", request("r1", "stop", {{"app", "clock"}}));
  send_as("bob", "c2", request("r1", "stop", {{"app", "clock"}}));
  send_as("bob", "c2", request("r2", "list"));
  ASSERT_TRUE(eventually([] { return was_stopped("clock"); }));
  ASSERT_TRUE(eventually(
      [&] { return read_file(agent_.directory() / "journal").find("r2") != std::string::npos; }));
  agent_.program().kill();
  agent_.start();
  EXPECT_TRUE(watcher_.until([&] {
    return answered("r1").size() == 2 && answered("r2").size() == 1;
  })) << agent_.program().errors();
  EXPECT_EQ(watcher_.json_of(topic("answer/ann"))["state"], "interrupted");
  // It had to wait for the other one, and was not begun.
  EXPECT_THAT(watcher_.text_of(topic("answer/bob")), HasSubstr("it was not run: ask again"));
}

TEST_F(AgentRequests, HaveTheirIdsForThemselves) {
  EXPECT_EQ(ask("r1", "list")["state"], "done");
  send(request("r1", "logs"));
  const Json refused = answer_to("r1", 2);
  EXPECT_EQ(refused["state"], "refused");
  EXPECT_EQ(refused["message"], "id 'r1' is that of another request");
}

TEST_F(AgentRequests, AreAskedByABoundedNumberWhileTheyRun) {
  install_application("clock");
  slow_the_stop_of("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  ASSERT_EQ(ask("first", "start", {{"app", "clock"}})["state"], "done");
  process_of("clock");
  for (int number = 0; number < 9; ++number) {
    send_as("ann", std::to_string(number), request("r1", "stop", {{"app", "clock"}}));
  }
  const Json refused = answer_to("r1");
  EXPECT_EQ(refused["state"], "refused");
  EXPECT_THAT(refused["message"].get<std::string>(), HasSubstr("8 wait for its answer already"));
  EXPECT_TRUE(watcher_.until([&] { return answered("r1").size() == 9; }));
}

TEST_F(AgentRequests, AreRefusedWhateverIsWrong) {
  const std::vector<std::string> wrong = {
      "",
      "null",
      "7",
      "\"list\"",
      "[]",
      "{}",
      std::string("\0\0\0", 3),
      "\xff\xfe{\"id\":\"r1\"}",
      std::string(30'000, '['),
      std::string(60'000, '{'),
      R"({"id":"r1","command":"list","expires_in":1,"arguments":)" + std::string(20'000, '[') +
          std::string(20'000, ']') + "}",
      R"({"id":{},"command":"list","expires_in":1})",
      R"({"id":"a/b","command":"list","expires_in":1})",
      R"({"id":"../x","command":"list","expires_in":1})",
      R"({"id":"r1","command":7,"expires_in":1})",
      R"({"id":"r1","command":"list","expires_in":"soon"})",
      R"({"id":"r1","command":"list","expires_in":1e999})",
      R"({"id":"r1","command":"list","arguments":[],"expires_in":1})",
      R"({"id":"r1","command":"start","arguments":{"app":{"x":[1]}},"expires_in":1})",
      R"({"id":"r1","command":"start","arguments":{"app":"\ud800"},"expires_in":1})",
      R"({"id":"r1","command":"install","arguments":{"url":7},"expires_in":1})",
      R"({"id":"r1","command":"logs","arguments":{"lines":1e30},"expires_in":1})",
      R"({"id":"r1","command":"backup","arguments":{"areas":[[]],"url":"https://h/b"},"expires_in":1})",
  };
  for (const std::string& payload : wrong) {
    const size_t before = watcher_.count_of(topic("answer/ann"));
    send(payload);
    ASSERT_TRUE(watcher_.until([&] { return watcher_.count_of(topic("answer/ann")) > before; }))
        << payload.substr(0, 100) << ": " << agent_.program().errors();
    EXPECT_EQ(watcher_.json_of(topic("answer/ann"))["state"], "refused") << payload.substr(0, 100);
  }
  EXPECT_EQ(ask("r2", "list")["state"], "done");
}

// What is longer than the agent takes at all, the broker keeps from it.
TEST_F(AgentRequests, AreNotTakenWhenTheyAreHuge) {
  for (const size_t bytes : {size_t{1'000'000}, size_t{5'000'000}}) send(std::string(bytes, 'x'));
  EXPECT_EQ(ask("r1", "list")["state"], "done");
  EXPECT_THAT(watcher_.messages().front().topic, StartsWith("tarvio/"));
  for (int number = 0; number < 20; ++number) send(std::string(900'000, 'x'));
  EXPECT_EQ(ask("r2", "list")["state"], "done");
}

}  // namespace
}  // namespace tarvio_test
