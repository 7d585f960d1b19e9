// A Mosquitto of a test's own, and someone who is connected to it.
#ifndef TARVIO_TESTS_SUPPORT_FLEET_BROKER_PROCESS_H
#define TARVIO_TESTS_SUPPORT_FLEET_BROKER_PROCESS_H

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fleet/session.h"
#include "support/children.h"
#include "support/files.h"
#include "support/programs/background_program.h"
#include "terminal/json.h"

namespace tarvio_test {

using client::Json;

inline constexpr char kHere[] = "127.0.0.1";
inline constexpr int kBrokerPort = 18830;

class BrokerProcess {
 public:
  explicit BrokerProcess(const std::string& settings =
                             "listener 18830 127.0.0.1\n"
                             "allow_anonymous true\n") {
    // An ordinary user's sandbox has no other user that it could become.
    write_file(directory_ / "conf", "user root\n" + settings);
    start();
  }

  void start() {
    program_ = std::make_unique<BackgroundProgram>(
        std::vector<std::string>{"mosquitto", "-c", directory_ / "conf"},
        [] { ::setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1); });
    EXPECT_TRUE(program_->says("running"));
  }
  // At any moment, as a crash does.
  void kill() { program_->kill(); }
  // It stands still, and holds its connections.
  void stop() const { program_->send(SIGSTOP); }

  std::string log() const { return program_->errors(); }

 private:
  const TempDir directory_;
  std::unique_ptr<BackgroundProgram> program_;
};

inline fleet::Broker plain_broker() {
  fleet::Broker broker;
  broker.host = kHere;
  broker.port = kBrokerPort;
  broker.has_tls = false;
  return broker;
}

// Sees all that is published.
class Watcher {
 public:
  explicit Watcher(const fleet::Broker& broker = plain_broker(),
                   const std::string& name = "watcher",
                   const std::vector<std::string>& filters = {"#"})
      : session_({.broker = broker, .client_id = name}), filters_(filters) {
    EXPECT_TRUE(until([this] { return session_.is_connected() || !cause_.empty(); }));
  }

  bool is_connected() const { return session_.is_connected(); }

  // The newest text of a topic; empty for none.
  std::string text_of(const std::string& topic) const {
    const auto found = newest_.find(topic);
    return found == newest_.end() ? "" : found->second.payload;
  }
  Json json_of(const std::string& topic) const {
    return Json::parse(text_of(topic), nullptr, false);
  }
  const std::vector<fleet::Message>& messages() const { return messages_; }
  size_t count_of(const std::string& topic) const {
    return static_cast<size_t>(
        std::count_if(messages_.begin(), messages_.end(),
                      [&](const fleet::Message& each) { return each.topic == topic; }));
  }
  const std::string& cause() const { return cause_; }
  int connections() const { return connections_; }

  void publish(const fleet::Message& message) { (void)session_.publish(message); }

  // Takes in what comes until the condition is true.
  template <typename Condition>
  bool until(Condition condition, std::chrono::milliseconds patience = 3 * kPatience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      step();
    }
    return true;
  }
  // Takes in what comes in that time.
  void watch(std::chrono::milliseconds time) {
    (void)until([] { return false; }, time);
  }

 private:
  void step() {
    constexpr int kLookMs = 20;
    pollfd file = {.fd = session_.fd(), .events = session_.events(), .revents = 0};
    (void)::poll(&file, 1, kLookMs);
    session_.step(file.revents);
    while (auto event = session_.next_event()) {
      if (event->kind == fleet::Event::Kind::kConnected) {
        ++connections_;
        for (const std::string& filter : filters_) session_.subscribe(filter);
      } else if (event->kind == fleet::Event::Kind::kLost) {
        cause_ = event->cause;
      } else if (event->kind == fleet::Event::Kind::kMessage) {
        newest_[event->message.topic] = event->message;
        messages_.push_back(event->message);
      }
    }
  }

  fleet::Session session_;
  const std::vector<std::string> filters_;
  std::map<std::string, fleet::Message> newest_;
  std::vector<fleet::Message> messages_;
  std::string cause_;
  int connections_ = 0;
};

}  // namespace tarvio_test

#endif
