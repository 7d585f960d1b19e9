// Rollouts of the operator's tool, to boards that answer at once.
#ifndef TARVIO_TESTS_FLEET_TOOL_ROLLOUT_TOOL_H
#define TARVIO_TESTS_FLEET_TOOL_ROLLOUT_TOOL_H

#include <memory>
#include <string>
#include <vector>

#include "tool.h"

namespace tarvio_test {

class FleetRolloutTool : public FleetTool {
 protected:
  FleetRolloutTool() { write_file(package(), "a package"); }

  void add(int count, const AnsweringBoard::Answer& answer = AnsweringBoard::done) {
    for (int number = 0; number < count; ++number) {
      boards_.push_back(
          std::make_unique<AnsweringBoard>("board-" + std::to_string(boards_.size()), answer));
    }
    Watcher watcher;
    const std::string last = "tarvio/v1/board-" + std::to_string(boards_.size() - 1) + "/apps";
    EXPECT_TRUE(watcher.until([&] { return !watcher.text_of(last).empty(); }));
  }
  std::string package() const { return home_ / "clock.tbx"; }
  std::vector<std::string> rollout(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words = {
        "rollout", "https://server/clock.tbx", "--to", "*", "--file", package(), "--json"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  static std::vector<Json> events(const std::string& output) {
    std::vector<Json> list;
    size_t at = 0;
    for (size_t end; (end = output.find('\n', at)) != std::string::npos; at = end + 1) {
      list.push_back(Json::parse(output.substr(at, end - at)));
    }
    return list;
  }
  static std::string id_in(const std::string& output) { return events(output)[0]["id"]; }
  static std::string topic_of(const std::string& id) { return "tarvio-fleet/v1/rollouts/" + id; }
  // What the broker keeps of a rollout, once it does.
  static Json record_of(const std::string& id, Watcher& watcher) {
    EXPECT_TRUE(watcher.until([&] { return watcher.json_of(topic_of(id)).is_object(); }));
    return watcher.json_of(topic_of(id));
  }
  size_t asked() const {
    size_t count = 0;
    for (const auto& board : boards_) count += board->requests().empty() ? 0U : 1U;
    return count;
  }

  std::vector<std::unique_ptr<AnsweringBoard>> boards_;
};

}  // namespace tarvio_test

#endif
