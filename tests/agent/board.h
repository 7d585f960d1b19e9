// A board with a broker, and an operator who asks it.
#ifndef TARVIO_TESTS_AGENT_BOARD_H
#define TARVIO_TESTS_AGENT_BOARD_H

#include <gtest/gtest.h>

#include <string>

#include "support/fleet/agent_process.h"
#include "support/fleet/broker_process.h"

namespace tarvio_test {

class WithBroker : public testing::Test {
 protected:
  WithBroker() { use_built_programs(); }

  BrokerProcess broker_;
};

class WithBoard : public WithBroker {
 protected:
  explicit WithBoard(const std::string& broker = kPlainBroker) : agent_("board-1", "", broker) {}

  static std::string topic(const std::string& end) { return "tarvio/v1/board-1/" + end; }

  bool is_online(bool online = true) {
    return watcher_.until([=, this] {
      const Json json = watcher_.json_of(topic("online"));
      return json.is_object() && json.value("online", !online) == online;
    });
  }

  void send(const std::string& payload, const std::string& correlation = "c") {
    watcher_.publish({.topic = topic("request"),
                      .payload = payload,
                      .response_topic = topic("answer/ann"),
                      .correlation = correlation});
  }
  static std::string request(const std::string& id, const std::string& command,
                             const Json& arguments = Json::object(), double seconds = 60) {
    return Json{{"id", id}, {"command", command}, {"arguments", arguments}, {"expires_in", seconds}}
        .dump();
  }
  // Waits for so many answers with that id, and returns the last one.
  Json answer_to(const std::string& id, size_t count = 1) {
    Json answer;
    const bool came = watcher_.until([&] {
      size_t found = 0;
      for (const fleet::Message& message : watcher_.messages()) {
        if (message.topic != topic("answer/ann")) continue;
        const Json json = Json::parse(message.payload);
        if (json["id"] != id) continue;
        answer = json;
        ++found;
      }
      return found >= count;
    });
    EXPECT_TRUE(came) << "no answer to " << id << ": " << agent_.program().errors();
    return answer.is_null() ? Json{{"state", ""}, {"message", ""}} : answer;
  }
  Json ask(const std::string& id, const std::string& command,
           const Json& arguments = Json::object()) {
    send(request(id, command, arguments));
    return answer_to(id);
  }

  Watcher watcher_;
  AgentProcess agent_;
};

}  // namespace tarvio_test

#endif
