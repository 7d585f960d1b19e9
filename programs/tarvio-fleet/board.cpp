#include "board.h"

#include "fleet/payload.h"
#include "fleet/topics.h"

namespace fleet_tool {

namespace {

// The element of a list of objects that has a name.
const Json* find_named(const Json& list, std::string_view name) {
  if (!list.is_array()) return nullptr;
  for (const Json& each : list) {
    if (text_in(each, "name") == name) return &each;
  }
  return nullptr;
}

}  // namespace

std::string text_in(const Json& object, const char* name) {
  if (!object.is_object()) return "";
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

std::vector<std::string> Board::tags() const {
  std::vector<std::string> tags;
  if (!system.is_object() || !system.contains("tags") || !system["tags"].is_array()) return tags;
  for (const Json& tag : system["tags"]) {
    if (tag.is_string()) tags.push_back(tag);
  }
  return tags;
}

std::optional<std::string> Board::version_of(std::string_view package) const {
  const Json* const found = find_named(packages, package);
  return found == nullptr ? std::nullopt : std::optional(text_in(*found, "version"));
}

std::optional<std::string> Board::state_of(std::string_view app) const {
  const Json* const found = find_named(apps, app);
  const std::string state = found == nullptr ? "" : text_in(*found, "run_state");
  return state.empty() ? std::nullopt : std::optional(state);
}

void take(const fleet::Message& message, Boards& boards) {
  const fleet::DeviceTopic topic = fleet::device_topic(message.topic);
  if (topic.device.empty()) return;
  const bool is_fact = topic.end == fleet::kOnline || topic.end == fleet::kSystem ||
                       topic.end == fleet::kApps || topic.end == fleet::kPackages;
  if (!is_fact) return;
  const std::string name(topic.device);
  if (topic.end == fleet::kOnline && message.payload.empty()) {
    boards.erase(name);  // it is removed from the broker
    return;
  }
  const Json json = fleet::json_in(message.payload);
  if (json.is_discarded()) return;
  Board& board = boards[name];
  board.name = name;
  if (topic.end == fleet::kOnline) {
    board.is_online = json.is_object() && json.contains("online") && json["online"] == true;
  }
  if (topic.end == fleet::kSystem) board.system = json;
  if (topic.end == fleet::kApps) board.apps = json;
  if (topic.end == fleet::kPackages) board.packages = json;
}

Json json_of(const Board& board) {
  return {{"name", board.name},
          {"online", board.is_online},
          {"system", board.system},
          {"apps", board.apps},
          {"packages", board.packages}};
}

}  // namespace fleet_tool
