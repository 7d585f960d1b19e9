// A board that answers as a test wants, in a thread of its own.
#ifndef TARVIO_TESTS_SUPPORT_FLEET_ANSWERING_BOARD_H
#define TARVIO_TESTS_SUPPORT_FLEET_ANSWERING_BOARD_H

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/fleet/broker_process.h"

namespace tarvio_test {

class AnsweringBoard {
 public:
  // The state and the message of the answer to a request; without a state there is none.
  using Answer = std::function<std::pair<std::string, std::string>(const Json& request)>;

  static std::pair<std::string, std::string> done(const Json&) { return {"done", "Success"}; }
  static std::pair<std::string, std::string> silent(const Json&) { return {"", ""}; }

  explicit AnsweringBoard(const std::string& name, Answer answer = done, const Json& tags = {})
      : name_(name),
        answer_(std::move(answer)),
        watcher_(plain_broker(), name, {topic("request")}) {
    keep("online", {{"online", true}});
    keep("system", {{"agent", "9.9"}, {"tags", tags}});
    keep("packages", Json::array({{{"name", "clock"}, {"version", "1.0"}}}));
    keep("apps", Json::array({{{"name", "clock"},
                               {"state", "normal"},
                               {"run_state", "running"},
                               {"installed_version", "1.0"}}}));
    thread_ = std::thread([this] { serve(); });
  }
  ~AnsweringBoard() {
    is_ending_ = true;
    thread_.join();
  }
  AnsweringBoard(const AnsweringBoard&) = delete;
  AnsweringBoard& operator=(const AnsweringBoard&) = delete;

  // What it was asked so far.
  std::vector<Json> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  std::string topic(const std::string& end) const { return "tarvio/v1/" + name_ + "/" + end; }
  void keep(const std::string& end, const Json& json) {
    watcher_.publish({.topic = topic(end), .payload = json.dump(), .is_retained = true});
  }
  void serve() {
    size_t served = 0;
    while (!is_ending_) {
      watcher_.watch(std::chrono::milliseconds(20));
      for (; served < watcher_.messages().size(); ++served) {
        const fleet::Message& message = watcher_.messages()[served];
        const Json request = Json::parse(message.payload);
        {
          const std::lock_guard lock(mutex_);
          requests_.push_back(request);
        }
        const auto [state, words] = answer_(request);
        if (state.empty()) continue;
        watcher_.publish({.topic = message.response_topic,
                          .payload = Json{
                              {"id", request["id"]},
                              {"state", state},
                              {"message", words},
                              {"device",
                               name_}}.dump()});
      }
    }
  }

  const std::string name_;
  const Answer answer_;
  Watcher watcher_;
  mutable std::mutex mutex_;
  std::vector<Json> requests_;
  std::atomic<bool> is_ending_ = false;
  std::thread thread_;
};

}  // namespace tarvio_test

#endif
