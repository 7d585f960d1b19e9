#include "rollout.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "commands/command.h"
#include "fleet/payload.h"
#include "fleet/topics.h"
#include "terminal/printable_text.h"

namespace fleet_tool {

namespace {

// A list and no object, whose members would be searched one by one as each is added.
Json json_of(const Wave& wave) {
  Json json = Json::array();
  for (const auto& [name, board] : wave) {
    json.push_back({{"board", name},
                    {"state", board.state},
                    {"message", board.message},
                    {"tries", board.tries}});
  }
  return json;
}

Wave wave_in(const Json& json) {
  Wave wave;
  for (const Json& entry : json) {
    wave[entry.at("board")] = {
        .state = entry.at("state"), .message = entry.at("message"), .tries = entry.at("tries")};
  }
  return wave;
}

}  // namespace

size_t Rollout::board_count() const {
  size_t count = 0;
  for (const Wave& wave : waves) count += wave.size();
  return count;
}

size_t Rollout::count_of(std::string_view board_state) const {
  size_t count = 0;
  for (const Wave& wave : waves) {
    for (const auto& [name, board] : wave) count += board.state == board_state ? 1U : 0U;
  }
  return count;
}

std::vector<std::pair<std::string, RolloutBoard>> Rollout::failures() const {
  std::vector<std::pair<std::string, RolloutBoard>> failed;
  for (const Wave& wave : waves) {
    for (const auto& [name, board] : wave) {
      if (board.state != kWaiting && board.state != kAsked && board.state != kDone) {
        failed.emplace_back(name, board);
      }
    }
  }
  return failed;
}

std::string failure_lines(const Rollout& rollout) {
  std::string lines;
  for (const auto& [name, board] : rollout.failures()) {
    lines += "  " + client::printable(name + ": " + board.state + ": " + board.message) + "\n";
  }
  return lines;
}

Json json_of(const Rollout& rollout) {
  Json waves = Json::array();
  for (const Wave& wave : rollout.waves) waves.push_back(json_of(wave));
  return {{"id", rollout.id},
          {"operator", rollout.operator_name},
          {"run", rollout.run},
          {"url", rollout.url},
          {"sha256", rollout.sha256},
          {"size", rollout.size},
          {"to", rollout.to},
          {"max_failures", rollout.max_failures},
          {"pause", rollout.pause_seconds},
          {"answer_timeout", rollout.answer_seconds},
          {"force", rollout.is_forced},
          {"state", rollout.state},
          {"started", rollout.started},
          {"updated", rollout.updated},
          {"waves", std::move(waves)},
          {"offline", rollout.offline},
          {"left_out", rollout.left_out}};
}

Rollout parse_rollout(const std::string& text) {
  try {
    const Json json = fleet::json_in(text);
    Rollout rollout = {.id = json.at("id"),
                       .operator_name = json.at("operator"),
                       .run = json.at("run"),
                       .url = json.at("url"),
                       .sha256 = json.at("sha256"),
                       .size = json.at("size"),
                       .to = json.at("to"),
                       .max_failures = json.at("max_failures"),
                       .pause_seconds = json.at("pause"),
                       .answer_seconds = json.at("answer_timeout"),
                       .is_forced = json.at("force"),
                       .state = json.at("state"),
                       .started = json.at("started"),
                       .updated = json.at("updated"),
                       .waves = {},
                       .offline = json.at("offline"),
                       .left_out = json.at("left_out")};
    for (const Json& wave : json.at("waves")) rollout.waves.push_back(wave_in(wave));
    if (!fleet::is_name(rollout.id)) throw std::runtime_error("its id is not a name");
    return rollout;
  } catch (const Json::exception& error) {
    throw std::runtime_error(std::string("is not a rollout: ") + error.what());
  }
}

std::vector<Wave> waves_of(const std::vector<std::string>& boards,
                           const std::vector<int>& percent) {
  std::vector<Wave> waves;
  size_t begun = 0;
  for (const int each : percent) {
    const double share = static_cast<double>(boards.size()) * each / 100;
    const size_t end =
        std::min(boards.size(), std::max(begun + 1, static_cast<size_t>(std::ceil(share))));
    if (end == begun) break;
    Wave& wave = waves.emplace_back();
    for (; begun < end; ++begun) wave.emplace(boards[begun], RolloutBoard{});
  }
  return waves;
}

std::vector<int> percents_in(const std::string& text) {
  std::vector<int> percents;
  for (std::string_view rest = text;;) {
    const size_t end = rest.find(',');
    std::string_view word = rest.substr(0, end);
    if (word.ends_with('%')) word.remove_suffix(1);
    const bool is_number = !word.empty() && word.size() <= 3 &&
                           word.find_first_not_of("0123456789") == std::string_view::npos;
    const int percent = is_number ? std::stoi(std::string(word)) : 0;
    if (percent < 1 || percent > 100 || (!percents.empty() && percent <= percents.back())) {
      throw client::UsageError("wave '" + text +
                               "' is not a list of growing percentages such as 5%,25%,100%");
    }
    percents.push_back(percent);
    if (end == std::string_view::npos) return percents;
    rest.remove_prefix(end + 1);
  }
}

}  // namespace fleet_tool
