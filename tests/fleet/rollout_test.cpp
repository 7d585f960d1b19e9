// The waves of a rollout, and its record.
#include "rollout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "commands/command.h"

namespace tarvio_test {
namespace {

using fleet_tool::percents_in;
using fleet_tool::Rollout;
using fleet_tool::RolloutBoard;
using testing::ElementsAre;

std::vector<size_t> sizes_of(size_t boards, const std::vector<int>& percents) {
  std::vector<std::string> names(boards);
  for (size_t at = 0; at < boards; ++at) names[at] = "board-" + std::to_string(1000 + at);
  std::vector<size_t> sizes;
  for (const auto& wave : fleet_tool::waves_of(names, percents)) sizes.push_back(wave.size());
  return sizes;
}

TEST(FleetWaves, GrowWithTheirShare) {
  EXPECT_THAT(sizes_of(100, {5, 25, 100}), ElementsAre(5U, 20U, 75U));
  EXPECT_THAT(sizes_of(10'000, {1, 10}), ElementsAre(100U, 900U));
}

TEST(FleetWaves, HaveABoardEach) {
  EXPECT_THAT(sizes_of(3, {5, 25, 100}), ElementsAre(1U, 1U, 1U));
  EXPECT_THAT(sizes_of(2, {5, 25, 100}), ElementsAre(1U, 1U));
  EXPECT_THAT(sizes_of(1, {5, 25, 100}), ElementsAre(1U));
}

TEST(FleetWaves, AreGivenByPercentages) {
  EXPECT_THAT(percents_in("5%,25%,100%"), ElementsAre(5, 25, 100));
  EXPECT_THAT(percents_in("7"), ElementsAre(7));
  for (const char* text : {"", "0", "101", "5,5", "50,5", "x", "5%%", "5,", "-5", "9999999999"}) {
    EXPECT_THROW(percents_in(text), client::UsageError) << text;
  }
}

Rollout sample() {
  Rollout rollout = {.id = "r1",
                     .operator_name = "ann",
                     .url = "https://h/c.tbx",
                     .sha256 = "00",
                     .size = 7,
                     .to = "*",
                     .max_failures = 2,
                     .pause_seconds = 1.5,
                     .answer_seconds = 60,
                     .is_forced = true,
                     .state = fleet_tool::kStopped,
                     .started = 1,
                     .updated = 2,
                     .waves = {}};
  rollout.waves.push_back({{"a", RolloutBoard{.state = fleet_tool::kDone}},
                           {"b", RolloutBoard{.state = "failed", .message = "no", .tries = 1}}});
  rollout.waves.push_back({{"c", RolloutBoard{}}, {"d", RolloutBoard{.state = "asked"}}});
  return rollout;
}

TEST(FleetRollout, IsKeptAsJson) {
  const client::Json json = json_of(sample());
  EXPECT_EQ(json_of(fleet_tool::parse_rollout(json.dump())), json);
}

TEST(FleetRollout, CountsItsBoards) {
  const Rollout rollout = sample();
  EXPECT_EQ(rollout.board_count(), 4U);
  EXPECT_EQ(rollout.count_of(fleet_tool::kDone), 1U);
  ASSERT_EQ(rollout.failures().size(), 1U);
  EXPECT_EQ(rollout.failures().front().first, "b");
  EXPECT_EQ(rollout.failures().front().second.message, "no");
}

TEST(FleetRollout, IsNotMadeOfAnythingElse) {
  for (const char* text : {"", "[]", "{}", R"({"id":1})"}) {
    EXPECT_THROW((void)fleet_tool::parse_rollout(text), std::runtime_error) << text;
  }
  client::Json json = json_of(sample());
  json["id"] = "../x";
  EXPECT_THROW((void)fleet_tool::parse_rollout(json.dump()), std::runtime_error);
  json["id"] = "r1";
  json["waves"] = {1};
  EXPECT_THROW((void)fleet_tool::parse_rollout(json.dump()), std::runtime_error);
}

}  // namespace
}  // namespace tarvio_test
