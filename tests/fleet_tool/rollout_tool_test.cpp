// Rollouts of the operator's tool.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "rollout_tool.h"
#include "support/fleet/https_server.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(FleetRolloutTool, AsksWaveAfterWave) {
  add(10);
  const Ran ran = run(rollout({"--wave", "10%,50%,100%"}));
  EXPECT_EQ(ran.status, 0) << ran.errors;
  std::vector<size_t> waves;
  for (const Json& event : events(ran.output)) {
    if (event["event"] == "wave") waves.push_back(event["boards"]);
  }
  EXPECT_THAT(waves, ElementsAre(1U, 4U, 5U));
  const Json last = events(ran.output).back();
  EXPECT_EQ(last["state"], "finished");
  EXPECT_EQ(last["done"], 10);
}

TEST_F(FleetRolloutTool, PausesBetweenWaves) {
  std::vector<std::chrono::steady_clock::time_point> times;
  add(2, [&](const Json&) {
    times.push_back(std::chrono::steady_clock::now());
    return std::pair{"done", "Success"};
  });
  const Ran ran = run(rollout({"--wave", "50%,100%", "--pause", "1"}));
  EXPECT_EQ(ran.status, 0) << ran.errors;
  std::vector<std::string> names;
  for (const Json& event : events(ran.output)) names.push_back(event["event"]);
  EXPECT_THAT(names, ElementsAre("rollout", "wave", "board", "pause", "wave", "board", "end"));
  ASSERT_EQ(times.size(), 2U);
  EXPECT_GE(times[1] - times[0], std::chrono::seconds(1));
}

TEST_F(FleetRolloutTool, TellsBoardsWhatToFetch) {
  add(1);
  EXPECT_EQ(run(rollout({"--force"})).status, 0);
  ASSERT_EQ(boards_[0]->requests().size(), 1U);
  EXPECT_EQ(boards_[0]->requests()[0]["command"], "install");
  EXPECT_EQ(boards_[0]->requests()[0]["arguments"],
            Json({{"url", "https://server/clock.tbx"},
                  {"sha256", "c0cd5ccfdb563a59366e33e73001b78fdb8cca5a6c48e2f90fffcde44b81f1f6"},
                  {"size", 9},
                  {"force", true}}));
}

TEST_F(FleetRolloutTool, StopsOnceTooManyHaveFailed) {
  add(2);
  add(2, [](const Json&) { return std::pair{"failed", "no space left"}; });
  add(6);
  const Ran ran = run(rollout({"--wave", "40%,100%", "--max-failures", "1"}));
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(asked(), 4U);
  EXPECT_THAT(ran.output,
              HasSubstr(R"("board":"board-2","state":"failed","message":"no space left")"));
  const Json last = events(ran.output).back();
  EXPECT_EQ(last["state"], "stopped");
  EXPECT_EQ(last["failures"][1],
            (Json{{"board", "board-3"}, {"state", "failed"}, {"message", "no space left"}}));
}

TEST_F(FleetRolloutTool, GoesOnWhileFewHaveFailed) {
  add(1, [](const Json&) { return std::pair{"failed", "no space left"}; });
  add(3);
  const Ran ran = run(rollout({"--wave", "25%,100%", "--max-failures", "1"}));
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(asked(), 4U);
  const Json last = events(ran.output).back();
  EXPECT_EQ(last["state"], "finished");
  EXPECT_EQ(last["failed"], 1);
}

TEST_F(FleetRolloutTool, CountsABoardThatGoesAwayAsFailed) {
  add(1, AnsweringBoard::silent);
  add(1);
  const Ran ran = run(rollout({"--wave", "50%,100%", "--answer-timeout", "1"}));
  EXPECT_EQ(ran.status, 1);
  EXPECT_TRUE(boards_[1]->requests().empty());
  EXPECT_THAT(ran.output, HasSubstr(R"("board":"board-0","state":"no answer")"));
}

TEST_F(FleetRolloutTool, SaysThatABoardHasGone) {
  add(1, AnsweringBoard::silent);
  BackgroundProgram program(line(rollout({"--wave", "100%", "--answer-timeout", "2"})));
  Watcher watcher;
  EXPECT_TRUE(watcher.until([&] { return !boards_[0]->requests().empty(); }));
  watcher.publish(
      {.topic = "tarvio/v1/board-0/online", .payload = R"({"online":false})", .is_retained = true});
  EXPECT_EQ(program.end(), 1);
  EXPECT_THAT(program.output(),
              HasSubstr(R"({"event":"presence","board":"board-0","online":false})"));
  EXPECT_EQ(events(program.output()).back()["failures"][0]["message"], "it has gone offline");
}

// Who may keep rollouts and ask no board.
TEST_F(FleetRolloutTool, SaysHowFarItWasAtAFailure) {
  broker_.kill();
  std::filesystem::permissions(home_.path(), std::filesystem::perms(0755));
  write_file(home_ / "access",
             "topic readwrite tarvio/v1/board-0/online\ntopic read tarvio/v1/#\n"
             "topic readwrite tarvio-fleet/v1/#\n");
  const BrokerProcess strict("listener 18830 127.0.0.1\nallow_anonymous true\nacl_file " +
                             (home_ / "access").string() + "\n");
  Watcher watcher;
  watcher.publish(
      {.topic = "tarvio/v1/board-0/online", .payload = R"({"online":true})", .is_retained = true});
  ASSERT_TRUE(watcher.until([&] { return !watcher.text_of("tarvio/v1/board-0/online").empty(); }));
  const Ran ran = run(rollout());
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("publish to 'tarvio/v1/board-0/request'"));
  EXPECT_EQ(events(ran.output).back()["event"], "end");
  EXPECT_EQ(events(ran.output).back()["state"], "interrupted");
}

TEST_F(FleetRolloutTool, IsForgottenEvenIfItCannotBeRead) {
  Watcher watcher;
  watcher.publish({.topic = "tarvio-fleet/v1/rollouts/old", .payload = "{}", .is_retained = true});
  ASSERT_TRUE(
      watcher.until([&] { return !watcher.text_of("tarvio-fleet/v1/rollouts/old").empty(); }));
  EXPECT_EQ(run({"history"}).status, 1);
  EXPECT_EQ(run({"history", "--forget", "old"}).status, 0);
  EXPECT_EQ(run({"history"}).status, 0);
}

TEST_F(FleetRolloutTool, SaysWhichBoardsItDoesNotReach) {
  add(10);
  Watcher watcher;
  watcher.publish(
      {.topic = "tarvio/v1/gone/online", .payload = R"({"online":false})", .is_retained = true});
  ASSERT_TRUE(watcher.until([&] { return !watcher.text_of("tarvio/v1/gone/online").empty(); }));
  const Ran ran = run(rollout({"--wave", "10%"}));
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_EQ(events(ran.output).front()["offline"], Json::array({"gone"}));
  EXPECT_EQ(events(ran.output).back()["left_out"], 9);
  std::vector<std::string> words = rollout({"--wave", "10%"});
  std::erase(words, "--json");
  const Ran shown = run(words);
  EXPECT_THAT(shown.output, HasSubstr("1 board is meant and offline: gone\n"));
  EXPECT_THAT(shown.output, HasSubstr("9 boards are in no wave and were not asked\n"));
}

TEST_F(FleetRolloutTool, CountsAStateThatNoAgentAnswersAsFailed) {
  add(1, [](const Json&) { return std::pair{"waiting", "who knows"}; });
  const Ran ran = run(rollout());
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(events(ran.output).back()["failures"][0]["board"], "board-0");
}

TEST_F(FleetRolloutTool, GivesABoardADayAtMost) {
  add(1);
  EXPECT_EQ(run(rollout({"--answer-timeout", "200000"})).status, 0);
  EXPECT_LE(boards_[0]->requests()[0]["expires_in"].get<double>(), 86'400);
}

TEST_F(FleetRolloutTool, IsForgotten) {
  add(1);
  const std::string id = id_in(run(rollout()).output);
  EXPECT_EQ(run({"history", "--forget", id}).status, 0);
  EXPECT_EQ(json({"history"}), Json::array());
  EXPECT_EQ(run({"resume", id}).status, 12);
  EXPECT_EQ(run({"history", "--forget", id}).status, 12);
}

TEST_F(FleetRolloutTool, IsInTheHistoryOfEveryOperator) {
  add(1);
  add(1, [](const Json&) { return std::pair{"failed", "no space left"}; });
  const std::string id = id_in(run(rollout()).output);
  settle("bob");
  const Json all = json({"history"});
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0]["id"], id);
  EXPECT_EQ(all[0]["operator"], "ann");
  EXPECT_EQ(all[0]["state"], "stopped");
  const Ran one = run({"history", id});
  EXPECT_THAT(one.output, HasSubstr("board-1: failed: no space left\n"));
  EXPECT_EQ(run({"history", "nothing"}).status, 12);
}

TEST_F(FleetRolloutTool, SendsThePackageToAServerFirst) {
  const HttpsServer server;
  add(1);
  write_file(package() + ".minisig", "a signature");
  const Ran ran =
      run({"rollout", HttpsServer::url("clock.tbx"), "--to", "*", "--upload", package(), "--to-url",
           HttpsServer::url("clock.tbx"), "--ca-file", server.authorities()});
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_EQ(read_file(server.file("clock.tbx")), "a package");
  EXPECT_EQ(read_file(server.file("clock.tbx.minisig")), "a signature");
}

TEST_F(FleetRolloutTool, SendsNothingForNobody) {
  const HttpsServer server;
  add(1);
  const Ran ran =
      run({"rollout", HttpsServer::url("clock.tbx"), "--to", "bord-*", "--upload", package(),
           "--to-url", HttpsServer::url("clock.tbx"), "--ca-file", server.authorities()});
  EXPECT_EQ(ran.status, 12);
  EXPECT_EQ(ran.errors, "tarvio-fleet: no such board is online\n");
  EXPECT_FALSE(std::filesystem::exists(server.file("clock.tbx")));
}

TEST_F(FleetRolloutTool, FetchesThePackageToLearnWhatItIs) {
  const HttpsServer server;
  write_file(server.file("clock.tbx"), "a package");
  add(1);
  const Ran ran = run(
      {"rollout", HttpsServer::url("clock.tbx"), "--to", "*", "--ca-file", server.authorities()});
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_EQ(boards_[0]->requests()[0]["arguments"]["size"], 9);
}

TEST_F(FleetRolloutTool, IsShownInWords) {
  add(1);
  add(1, [](const Json&) { return std::pair{"failed", "no space left"}; });
  std::vector<std::string> words = rollout({"--wave", "100%"});
  std::erase(words, "--json");
  const Ran ran = run(words);
  const std::string id = json({"history"})[0]["id"];
  EXPECT_THAT(ran.output,
              HasSubstr("rollout " + id + ": 2 boards in 1 wave\nwave 1 of 1: 2 boards\n"));
  EXPECT_THAT(ran.output, HasSubstr("board-0: done\n"));
  EXPECT_THAT(ran.output, HasSubstr("board-1: failed: no space left\n"));
  EXPECT_THAT(ran.output, HasSubstr("rollout " + id +
                                    ": stopped, 1 of 2 boards done, 1 failed\n"
                                    "  board-1: failed: no space left\n"
                                    "Continue with 'tarvio-fleet resume " +
                                    id + "', which asks those again that have failed.\n"));
}

}  // namespace
}  // namespace tarvio_test
