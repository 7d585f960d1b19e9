// Rollouts of the operator's tool.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/fleet/https_server.h"
#include "tool.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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
  size_t asked() const {
    size_t count = 0;
    for (const auto& board : boards_) count += board->requests().empty() ? 0U : 1U;
    return count;
  }

  std::vector<std::unique_ptr<AnsweringBoard>> boards_;
};

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

TEST_F(FleetRolloutTool, IsResumedWithThoseThatHaveFailed) {
  bool is_full = true;
  add(1);
  add(1, [&](const Json&) {
    return is_full ? std::pair{"failed", "no space left"} : std::pair{"done", "Success"};
  });
  add(2);
  const Ran stopped = run(rollout({"--wave", "50%,100%"}));
  EXPECT_EQ(stopped.status, 1);
  is_full = false;
  settle("bob");
  const Ran resumed = run({"resume", id_in(stopped.output), "--json"});
  EXPECT_EQ(resumed.status, 0) << resumed.output << resumed.errors;
  EXPECT_EQ(events(resumed.output).back()["done"], 4);
  EXPECT_EQ(boards_[0]->requests().size(), 1U);
  ASSERT_EQ(boards_[1]->requests().size(), 2U);
  // Else it would be told again that it has failed.
  EXPECT_NE(boards_[1]->requests()[0]["id"], boards_[1]->requests()[1]["id"]);
}

TEST_F(FleetRolloutTool, IsResumedAfterAnInterruption) {
  add(1);
  add(1, AnsweringBoard::silent);
  add(1);
  BackgroundProgram program(line(rollout({"--wave", "30%,60%,100%"})));
  ASSERT_TRUE(eventually([this] { return !boards_[1]->requests().empty(); }));
  program.send(SIGINT);
  EXPECT_NE(program.end(), 0);
  const Json last = events(program.output()).back();
  EXPECT_EQ(last["state"], "interrupted");
  EXPECT_TRUE(boards_[2]->requests().empty());
  BackgroundProgram again(line({"resume", last["id"], "--json"}));
  ASSERT_TRUE(eventually([this] { return boards_[1]->requests().size() == 2; }));
  // It may still be at work on the first one, and must not do it twice.
  EXPECT_EQ(boards_[1]->requests()[0]["id"], boards_[1]->requests()[1]["id"]);
  EXPECT_EQ(boards_[0]->requests().size(), 1U);
}

TEST_F(FleetRolloutTool, IsNotResumedWhileItIsCarriedOut) {
  add(1, AnsweringBoard::silent);
  BackgroundProgram program(line(rollout()));
  ASSERT_TRUE(eventually([this] { return !boards_[0]->requests().empty(); }));
  const std::string id = id_in(program.output());
  settle("bob");
  const Ran refused = run({"resume", id});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.errors,
            "tarvio-fleet: rollout '" + id + "' is carried out by 'ann' right now\n");
}

TEST_F(FleetRolloutTool, IsKeptOnceTheBrokerIsBack) {
  add(1, AnsweringBoard::silent);
  BackgroundProgram program(line(rollout({"--answer-timeout", "2"})));
  ASSERT_TRUE(eventually([this] { return !boards_[0]->requests().empty(); }));
  broker_.kill();
  ASSERT_TRUE(eventually([&] {
    return program.output().find(R"("board":"board-0","state":"no answer")") != std::string::npos;
  }));
  broker_.start();
  EXPECT_EQ(program.end(), 1) << program.errors();
  EXPECT_THAT(program.output(), HasSubstr(R"({"event":"connection","connected":false,"message":)"));
  const Json all = json({"history"});
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0]["state"], "stopped");
}

TEST_F(FleetRolloutTool, SaysThatTheBrokerIsBack) {
  add(1, AnsweringBoard::silent);
  BackgroundProgram program(line(rollout()));
  ASSERT_TRUE(eventually([this] { return !boards_[0]->requests().empty(); }));
  broker_.kill();
  broker_.start();
  EXPECT_TRUE(eventually([&] {
    return program.output().find(R"({"event":"connection","connected":true})") != std::string::npos;
  })) << program.output();
}

TEST_F(FleetRolloutTool, EndsAtASignalWithoutTheBroker) {
  add(1, AnsweringBoard::silent);
  BackgroundProgram program(line(rollout()));
  ASSERT_TRUE(eventually([this] { return !boards_[0]->requests().empty(); }));
  broker_.kill();
  ASSERT_TRUE(eventually(
      [&] { return program.output().find(R"("connected":false)") != std::string::npos; }));
  program.send(SIGINT);
  EXPECT_NE(program.end(), 0);
  EXPECT_EQ(events(program.output()).back()["state"], "interrupted");
  EXPECT_THAT(program.errors(), HasSubstr("the broker cannot be reached and does not know that"));
}

TEST_F(FleetRolloutTool, NeedsNoFileOfItsOwn) {
  add(1);
  write_file(home_ / ".local", "in the way");
  const Ran ran = run(rollout());
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_THAT(ran.errors, HasSubstr("cannot create"));
  EXPECT_THAT(ran.errors, HasSubstr("; only the broker keeps this rollout\n"));
  EXPECT_EQ(json({"history"})[0]["state"], "finished");
}

// As when both resume it at the same moment, or the first one was stopped for a while.
TEST_F(FleetRolloutTool, EndsWhereAnotherCarriesItOut) {
  add(1, AnsweringBoard::silent);
  BackgroundProgram program(line(rollout()));
  ASSERT_TRUE(eventually([this] { return !boards_[0]->requests().empty(); }));
  const std::string id = id_in(program.output());
  const std::string topic = "tarvio-fleet/v1/rollouts/" + id;
  Watcher watcher;
  ASSERT_TRUE(watcher.until([&] { return !watcher.text_of(topic).empty(); }));
  Json record = watcher.json_of(topic);
  record["run"] = "another";
  record["operator"] = "bob";
  watcher.publish({.topic = topic, .payload = record.dump(), .is_retained = true});
  EXPECT_EQ(program.end(), 1);
  EXPECT_EQ(program.errors(),
            "tarvio-fleet: rollout '" + id + "' ends here: 'bob' carries it out now\n");
  watcher.watch(std::chrono::milliseconds(200));
  EXPECT_EQ(watcher.json_of(topic)["run"], "another");
}

TEST_F(FleetRolloutTool, IsResumedByOneOfTwo) {
  bool is_full = true;
  add(1, [&](const Json&) {
    return is_full ? std::pair{"failed", "no space left"} : std::pair{"", ""};
  });
  const std::string id = id_in(run(rollout()).output);
  is_full = false;
  BackgroundProgram one(line({"resume", id, "--json"}));
  BackgroundProgram other(line({"resume", id, "--json"}));
  EXPECT_TRUE(eventually([&] { return one.has_ended() || other.has_ended(); }));
  BackgroundProgram& ended = one.has_ended() ? one : other;
  EXPECT_EQ(ended.end(), 1);
  EXPECT_THAT(ended.errors(), HasSubstr("'ann'"));
  Watcher watcher;
  watcher.watch(std::chrono::milliseconds(1500));
  EXPECT_NE(one.has_ended(), other.has_ended()) << one.errors() << other.errors();
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

TEST_F(FleetRolloutTool, LetsGoOfWhatWasResumedWhileItStoodStill) {
  add(1, AnsweringBoard::silent);
  BackgroundProgram program(line(rollout()));
  ASSERT_TRUE(eventually([this] { return !boards_[0]->requests().empty(); }));
  const std::string id = id_in(program.output());
  program.send(SIGSTOP);
  settle("bob");
  BackgroundProgram again(line({"resume", id, "--json"}));
  ASSERT_TRUE(eventually([this] { return boards_[0]->requests().size() == 2; }));
  program.send(SIGCONT);
  EXPECT_EQ(program.end(), 1);
  EXPECT_THAT(program.errors(), HasSubstr("'bob' carries it out now"));
  EXPECT_FALSE(again.has_ended()) << again.errors();
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

// A broker that keeps nothing over a restart.
TEST_F(FleetRolloutTool, IsResumedFromTheOperatorsOwnFiles) {
  add(1, [](const Json&) { return std::pair{"failed", "no space left"}; });
  const std::string id = id_in(run(rollout()).output);
  boards_.clear();
  broker_.kill();
  broker_.start();
  EXPECT_EQ(json({"history"}), Json::array());
  add(1);
  const Ran resumed = run({"resume", id, "--json"});
  EXPECT_EQ(resumed.status, 0) << resumed.output << resumed.errors;
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
