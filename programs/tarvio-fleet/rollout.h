// A rollout: which boards get a package when, and what has become of each.
#ifndef TARVIO_FLEET_TOOL_ROLLOUT_H
#define TARVIO_FLEET_TOOL_ROLLOUT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "terminal/json.h"

namespace fleet_tool {

using client::Json;

// Of a rollout.
inline constexpr char kRunning[] = "running";
inline constexpr char kInterrupted[] = "interrupted";
inline constexpr char kStopped[] = "stopped";  // too many boards have failed
inline constexpr char kFinished[] = "finished";

// Of a board in it; else the state of its answer.
inline constexpr char kWaiting[] = "waiting";
inline constexpr char kAsked[] = "asked";
inline constexpr char kDone[] = "done";

struct RolloutBoard {
  std::string state = kWaiting;
  std::string message = {};
  int tries = 0;  // of the package, that have ended
};

using Wave = std::map<std::string, RolloutBoard>;

struct Rollout {
  std::string id;
  std::string operator_name;
  std::string run = {};  // of the program that carries it out or did so last
  std::string url;
  std::string sha256;
  uint64_t size = 0;
  std::string to;  // the expression
  int max_failures = 0;
  double pause_seconds = 0;
  double answer_seconds = 0;
  bool is_forced = false;
  std::string state = kRunning;
  int64_t started = 0;  // in seconds since the epoch
  int64_t updated = 0;
  std::vector<Wave> waves;
  std::vector<std::string> offline = {};  // boards that are meant and were offline when it began
  size_t left_out = 0;                    // boards that are meant and in no wave

  [[nodiscard]] size_t board_count() const;
  [[nodiscard]] size_t count_of(std::string_view board_state) const;
  // Boards that were asked and have not done it, with the reason.
  [[nodiscard]] std::vector<std::pair<std::string, RolloutBoard>> failures() const;
};

// The failures for people.
std::string failure_lines(const Rollout& rollout);

Json json_of(const Rollout& rollout);

// Throws std::runtime_error for a text that is no rollout.
Rollout parse_rollout(const std::string& text);

// Cuts boards into waves: percent of all that are done after each. Every wave has a board.
std::vector<Wave> waves_of(const std::vector<std::string>& boards, const std::vector<int>& percent);

// "5%,25%,100%". Throws a UsageError.
std::vector<int> percents_in(const std::string& text);

}  // namespace fleet_tool

#endif
