// Rollouts that are interrupted, and go on: by a signal, by the broker's end, by another operator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>

#include "rollout_tool.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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

TEST_F(FleetRolloutTool, IsNotResumedWhileSomebodyWithASlowClockCarriesItOut) {
  add(1, [](const Json&) { return std::pair{"failed", "no space left"}; });
  const std::string id = id_in(run(rollout()).output);
  const std::string topic = topic_of(id);
  Watcher watcher;
  Json record = record_of(id, watcher);
  record.update({{"state", "running"}, {"operator", "bob"}});
  const auto save = [&](int time) {
    record["updated"] = time;
    watcher.publish({.topic = topic, .payload = record.dump(), .is_retained = true});
    watcher.watch(std::chrono::milliseconds(300));
  };
  save(1);
  BackgroundProgram program(line({"resume", id}));
  for (int time = 2; time < 60 && !program.has_ended(); ++time) save(time);
  EXPECT_EQ(program.end(), 1);
  EXPECT_EQ(program.errors(),
            "tarvio-fleet: rollout '" + id + "' is carried out by 'bob' right now\n");
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
  const std::string topic = topic_of(id);
  Watcher watcher;
  Json record = record_of(id, watcher);
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

// As of one that had not heard of it yet when it wrote its last one. Both would end otherwise, each
// because of the other.
TEST_F(FleetRolloutTool, GoesOnAfterALateRecordOfTheRunBeforeIt) {
  bool is_full = true;
  add(1, [&](const Json&) {
    return is_full ? std::pair{"failed", "no space left"} : std::pair{"", ""};
  });
  const std::string id = id_in(run(rollout()).output);
  is_full = false;
  const std::string topic = topic_of(id);
  Watcher watcher;
  const Json before = record_of(id, watcher);
  const auto is_of_before = [&] { return watcher.json_of(topic)["run"] == before["run"]; };
  settle("bob");
  BackgroundProgram program(line({"resume", id, "--json"}));
  ASSERT_TRUE(watcher.until([&] { return !is_of_before(); }));
  ASSERT_TRUE(eventually([this] { return boards_[0]->requests().size() == 2; }));
  watcher.publish({.topic = topic, .payload = before.dump(), .is_retained = true});
  ASSERT_TRUE(watcher.until(is_of_before));
  EXPECT_TRUE(watcher.until([&] { return program.has_ended() || !is_of_before(); }));
  EXPECT_FALSE(program.has_ended()) << program.errors();
  EXPECT_EQ(watcher.json_of(topic)["operator"], "bob");
}

}  // namespace
}  // namespace tarvio_test
