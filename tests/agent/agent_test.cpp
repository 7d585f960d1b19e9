// What a board says of itself, and what it does when it is asked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "board.h"
#include "support/apps/applications.h"
#include "support/programs/tarvio.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;

using Agent = WithBoard;

// Its process that speaks to the broker, among its children; 0 for none.
pid_t link_of(pid_t agent) {
  for (const pid_t child : children_of(agent)) {
    const std::string file = "/proc/" + std::to_string(child) + "/cmdline";
    if (read_file(file).find("tarvio-agent-link") != std::string::npos) return child;
  }
  return 0;
}

TEST_F(Agent, SaysThatItIsOnline) {
  EXPECT_TRUE(is_online());
  const fleet::Message& first = watcher_.messages().front();
  EXPECT_THAT(first.topic, HasSubstr("tarvio/v1/board-1/"));
}

TEST_F(Agent, SaysWhatTheBoardIs) {
  ASSERT_TRUE(watcher_.until([this] { return !watcher_.text_of(topic("system")).empty(); }));
  const Json system = watcher_.json_of(topic("system"));
  EXPECT_EQ(system["agent"], TARVIO_VERSION);
  EXPECT_EQ(system["tags"], Json::array());
  EXPECT_EQ(system["unfinished"], Json::array());
  EXPECT_TRUE(system["root"]["type"].is_string());
  EXPECT_GE(system["uptime"], 0);
  EXPECT_GT(system["free_bytes"], 0);
  EXPECT_GT(system["booted"], 1'000'000'000);
  EXPECT_GE(system["clock"], system["booted"]);
}

TEST_F(Agent, SaysWhichVersionsTheProgramsHave) {
  const auto says = [&](const char* name, const Json& version) {
    return watcher_.until([&] {
      const Json system = watcher_.json_of(topic("system"));
      return system.is_object() && system[name] == version;
    });
  };
  EXPECT_TRUE(says("client", TARVIO_VERSION));
  EXPECT_TRUE(says("library", "1.0"));
  EXPECT_TRUE(says("manager", Json()));
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_TRUE(says("manager", TARVIO_VERSION));
}

TEST_F(Agent, LeavesWhatItHasSaidAtTheBroker) {
  ASSERT_TRUE(watcher_.until([this] { return !watcher_.text_of(topic("packages")).empty(); }));
  Watcher later(plain_broker(), "later");
  EXPECT_TRUE(later.until([&] {
    for (const char* end : {"online", "system", "apps", "packages"}) {
      if (later.text_of(topic(end)).empty()) return false;
    }
    return true;
  }));
}

TEST_F(Agent, IsOfflineOnceItIsKilled) {
  ASSERT_TRUE(is_online());
  agent_.program().kill();
  EXPECT_TRUE(is_online(false));
}

TEST_F(Agent, IsOfflineOnceItIsStopped) {
  ASSERT_TRUE(is_online());
  agent_.program().send(SIGTERM);
  EXPECT_EQ(agent_.program().end(), 0);
  EXPECT_TRUE(is_online(false));
}

TEST_F(Agent, TellsWhatTheManagerHasWritten) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  const auto says = [&](const char* state) {
    return watcher_.until([&] {
      const Json apps = watcher_.json_of(topic("apps"));
      return apps.is_array() && apps.size() == 1 && apps[0]["run_state"] == state;
    });
  };
  EXPECT_TRUE(says("stopped"));
  EXPECT_EQ(run_tarvio({"start", "clock"}).status, 0);
  EXPECT_TRUE(says("running"));
  EXPECT_EQ(Json::parse(run_tarvio({"status", "--wide", "--json"}).output)[0]["pid"],
            watcher_.json_of(topic("apps"))[0]["pid"]);
}

TEST_F(Agent, TellsOfApplicationsOnceASecondAtMost) {
  using Clock = std::chrono::steady_clock;
  constexpr int kApps = 8;
  for (int number = 0; number < kApps; ++number) {
    install_application("app" + std::to_string(number));
  }
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  const auto running = [this] {
    const Json apps = watcher_.json_of(topic("apps"));
    return std::count_if(apps.begin(), apps.end(),
                         [](const Json& app) { return app["run_state"] == "running"; });
  };
  ASSERT_TRUE(watcher_.until([&] { return watcher_.json_of(topic("apps")).size() == kApps; }));
  const size_t before = watcher_.count_of(topic("apps"));
  const auto begin = Clock::now();
  for (int number = 0; number < kApps; ++number) {
    EXPECT_EQ(run_tarvio({"start", "app" + std::to_string(number)}).status, 0);
  }
  EXPECT_TRUE(watcher_.until([&] { return running() == kApps; }));
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin);
  EXPECT_LE(watcher_.count_of(topic("apps")), before + static_cast<size_t>(seconds.count()) + 2);
}

TEST_F(Agent, SaysWhenThereIsNoManager) {
  EXPECT_TRUE(watcher_.until([this] { return watcher_.text_of(topic("apps")) == "null"; }));
}

TEST_F(Agent, TellsWhichPackagesAreInstalled) {
  ASSERT_TRUE(watcher_.until([this] { return watcher_.text_of(topic("packages")) == "[]"; }));
  install_application("clock");
  EXPECT_TRUE(watcher_.until([this] {
    const Json packages = watcher_.json_of(topic("packages"));
    return packages.is_array() && packages.size() == 1 && packages[0]["name"] == "clock";
  }));
}

TEST_F(Agent, AnswersWithTheResultOfTheCommand) {
  install_application("clock");
  ASSERT_TRUE(is_online());
  const Json answer = ask("r1", "list");
  EXPECT_EQ(answer["state"], "done");
  EXPECT_EQ(answer["status"], 0);
  EXPECT_EQ(answer["message"], "Success");
  EXPECT_EQ(answer["device"], "board-1");
  EXPECT_EQ(answer["result"], Json::parse(run_tarvio({"list", "--json"}).output));
}

std::string log_of(int lines) {
  std::filesystem::create_directories("/var/log");
  std::string log;
  for (int number = 0; number < lines; ++number) {
    log += "Nov 22 06:34:58 board local6.info clock[12]: line " + std::to_string(number) + '\n';
  }
  return log;
}

TEST_F(Agent, SendsTheLinesOfTheLog) {
  write_file("/var/log/messages", log_of(3));
  ASSERT_TRUE(is_online());
  const Json answer = ask("r1", "logs", {{"app", "clock"}, {"lines", 2}});
  EXPECT_EQ(answer["state"], "done") << answer;
  ASSERT_EQ(answer["result"].size(), 2U) << answer;
  EXPECT_EQ(answer["result"],
            Json::parse(run_tarvio({"logs", "clock", "--lines", "2", "--json"}).output));
  EXPECT_FALSE(answer.contains("note"));
}

TEST_F(Agent, SaysThatAResultIsTooLong) {
  write_file("/var/log/messages", log_of(9000));
  ASSERT_TRUE(is_online());
  const Json answer = ask("r1", "logs", {{"app", "clock"}, {"lines", 9000}});
  EXPECT_EQ(answer["state"], "done");
  EXPECT_EQ(answer["result"], Json());
  EXPECT_EQ(answer["note"], "its result is too long for the agent: ask for less");
}

TEST_F(Agent, SendsTheCorrelationBack) {
  ASSERT_TRUE(is_online());
  send(request("r1", "list"), std::string("\0\xff", 2));
  (void)answer_to("r1");
  EXPECT_EQ(watcher_.messages().back().correlation, std::string("\0\xff", 2));
}

TEST_F(Agent, StartsAndStopsAnApplication) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  ASSERT_TRUE(is_online());
  EXPECT_EQ(ask("r1", "start", {{"app", "clock"}})["state"], "done");
  process_of("clock");
  EXPECT_EQ(ask("r2", "restart", {{"app", "clock"}})["state"], "done");
  EXPECT_EQ(ask("r3", "stop", {{"app", "clock"}})["state"], "done");
  EXPECT_TRUE(was_stopped("clock"));
  EXPECT_EQ(ask("r4", "refresh")["state"], "done");
}

TEST_F(Agent, SaysWhyACommandHasFailed) {
  ASSERT_TRUE(is_online());
  const Json answer = ask("r1", "start", {{"app", "clock"}});
  EXPECT_EQ(answer["state"], "failed");
  EXPECT_EQ(answer["status"], 3);
  const std::string errors = run_tarvio({"start", "clock"}).errors;
  EXPECT_EQ("tarvio: " + answer["message"].get<std::string>() + "\n", errors);
}

TEST_F(Agent, RefusesWhatItDoesNotUnderstand) {
  ASSERT_TRUE(is_online());
  const Json answer = ask("r1", "boom");
  EXPECT_EQ(answer["state"], "refused");
  EXPECT_EQ(answer["message"], "unknown command 'boom'");
  send("{");
  EXPECT_TRUE(watcher_.until([this] {
    const Json last = watcher_.json_of(topic("answer/ann"));
    return last["id"].is_null() && last["message"] == "the request is not JSON, or nested too deep";
  }));
}

TEST_F(Agent, RefusesARequestThatIsTooLarge) {
  ASSERT_TRUE(is_online());
  send(std::string(65'537, ' '));
  EXPECT_TRUE(watcher_.until([this] {
    const Json last = watcher_.json_of(topic("answer/ann"));
    return last.is_object() &&
           last["message"] == "the request has 65537 bytes, and 65536 are allowed";
  }));
}

// Else who may only ask could make a board publish anywhere.
TEST_F(Agent, AnswersBelowItsOwnNameAlone) {
  ASSERT_TRUE(is_online());
  for (const std::string response : {"", "tarvio/v1/board-2/answer/ann", "tarvio/v1/board-1/online",
                                     "tarvio/v1/board-1/answer/", "tarvio/v1/board-1/answer/a/b"}) {
    watcher_.publish(
        {.topic = topic("request"), .payload = request("r1", "list"), .response_topic = response});
    ASSERT_TRUE(agent_.program().says("its response topic '" + response + "' is not"));
  }
  EXPECT_EQ(ask("r1", "list")["state"], "done");
}

// Who may publish for anybody could leave it for boards that are installed later.
TEST_F(Agent, IgnoresARequestThatTheBrokerKeeps) {
  watcher_.publish({.topic = "tarvio/v1/board-2/request",
                    .payload = request("kept", "list"),
                    .is_retained = true,
                    .response_topic = "tarvio/v1/board-2/answer/ann"});
  const AgentProcess other("board-2");
  ASSERT_TRUE(
      watcher_.until([this] { return !watcher_.text_of("tarvio/v1/board-2/online").empty(); }));
  watcher_.publish({.topic = "tarvio/v1/board-2/request",
                    .payload = request("r1", "list"),
                    .response_topic = "tarvio/v1/board-2/answer/ann"});
  ASSERT_TRUE(
      watcher_.until([this] { return !watcher_.text_of("tarvio/v1/board-2/answer/ann").empty(); }));
  EXPECT_EQ(watcher_.json_of("tarvio/v1/board-2/answer/ann")["id"], "r1");
  EXPECT_EQ(watcher_.count_of("tarvio/v1/board-2/answer/ann"), 1U);
}

TEST_F(Agent, RunsNoRequestTwice) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  ASSERT_TRUE(is_online());
  EXPECT_EQ(ask("r1", "start", {{"app", "clock"}})["state"], "done");
  send(request("r2", "restart", {{"app", "clock"}}));
  send(request("r2", "restart", {{"app", "clock"}}));
  (void)answer_to("r2");
  send(request("r2", "restart", {{"app", "clock"}}));
  const Json again = answer_to("r2", 2);
  EXPECT_EQ(again["state"], "done");
  EXPECT_FALSE(again.contains("result"));
  EXPECT_EQ(Json::parse(run_tarvio({"status", "--wide", "--json"}).output)[0]["starts"], 2);
}

TEST_F(Agent, RunsNoRequestTwiceAfterItsOwnStart) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  ASSERT_TRUE(is_online());
  EXPECT_EQ(ask("r1", "start", {{"app", "clock"}})["state"], "done");
  EXPECT_EQ(ask("r2", "stop", {{"app", "clock"}})["state"], "done");
  agent_.program().kill();
  agent_.start();
  ASSERT_TRUE(agent_.program().says("connected to the broker"));
  send(request("r1", "start", {{"app", "clock"}}));
  EXPECT_EQ(answer_to("r1", 2)["state"], "done");
  EXPECT_EQ(Json::parse(run_tarvio({"status", "--wide", "--json"}).output)[0]["run_state"],
            "stopped");
}

TEST_F(Agent, TakesARequestThatHasWaitedAtTheBroker) {
  ASSERT_TRUE(is_online());
  agent_.program().kill();
  ASSERT_TRUE(is_online(false));
  send(request("r1", "list"));
  agent_.start();
  EXPECT_EQ(answer_to("r1")["state"], "done");
}

// Its stop file holds the others up.
class AgentWithASlowStop : public Agent {
 protected:
  void SetUp() override {
    install_application("clock");
    slow_the_stop_of("clock");
    ASSERT_TRUE(manager_.answers());
    ASSERT_TRUE(is_online());
    ASSERT_EQ(ask("start", "start", {{"app", "clock"}})["state"], "done");
    process_of("clock");
    send(request("stop", "stop", {{"app", "clock"}}));
    ASSERT_TRUE(eventually([] { return was_stopped("clock"); }));
  }

  Tarviod manager_;
};

TEST_F(AgentWithASlowStop, DoesNotRunWhatHasWaitedTooLong) {
  send(request("late", "list", Json::object(), 0.1));
  const Json answer = answer_to("late");
  EXPECT_EQ(answer["state"], "expired");
  EXPECT_EQ(answer_to("stop")["state"], "done");
}

TEST_F(AgentWithASlowStop, RefusesMoreThanItCanQueue) {
  for (int number = 0; number < 40; ++number) send(request("q" + std::to_string(number), "list"));
  const Json refused = answer_to("q39");
  EXPECT_EQ(refused["state"], "refused");
  EXPECT_EQ(refused["message"], "the queue is full: 32 requests are waiting; try again later");
  EXPECT_EQ(answer_to("q31")["state"], "done");
}

TEST_F(AgentWithASlowStop, ReportsWhatAKillHasCutShort) {
  agent_.program().kill();
  agent_.start();
  const Json answer = answer_to("stop");
  EXPECT_EQ(answer["state"], "interrupted");
  EXPECT_EQ(answer["message"],
            "the board or its agent went down in the middle of this request: look what has become "
            "of it, and ask again with a new id");
}

// And says so before it ends: the next one has nothing to add.
TEST_F(AgentWithASlowStop, FinishesWhatWasBegunWhenItIsStopped) {
  agent_.program().send(SIGTERM);
  EXPECT_EQ(agent_.program().end(), 0);
  EXPECT_EQ(answer_to("stop")["state"], "done");
  agent_.start();
  ASSERT_TRUE(is_online());
  ASSERT_EQ(ask("r1", "list")["state"], "done");
  EXPECT_EQ(std::count_if(watcher_.messages().begin(), watcher_.messages().end(),
                          [](const fleet::Message& message) {
                            return message.topic == topic("answer/ann") &&
                                   Json::parse(message.payload)["id"] == "stop";
                          }),
            1);
}

TEST_F(AgentWithASlowStop, DeliversTheAnswerOnceTheBrokerIsBack) {
  broker_.kill();
  broker_.start();
  // Who asked may have come back too late for the answer, and asks again.
  ASSERT_TRUE(watcher_.until([this] { return watcher_.connections() == 2; }));
  ASSERT_TRUE(is_online());
  send(request("stop", "stop", {{"app", "clock"}}));
  EXPECT_EQ(answer_to("stop")["state"], "done");
}

TEST_F(AgentWithASlowStop, FinishesItWithoutTheProcessThatSpeaksToTheBroker) {
  const pid_t link = link_of(agent_.program().pid());
  ASSERT_GT(link, 0);
  ::kill(link, SIGKILL);
  EXPECT_EQ(agent_.program().end(), 1);
  EXPECT_THAT(agent_.program().errors(),
              HasSubstr("the process that speaks to the broker has ended"));
  agent_.start();
  EXPECT_EQ(answer_to("stop")["state"], "done");
}

TEST_F(Agent, GivesUpRootForTheConnection) {
  if (!has_other_users()) GTEST_SKIP() << "there is nobody else";
  ASSERT_TRUE(is_online());
  const pid_t link = link_of(agent_.program().pid());
  ASSERT_GT(link, 0);
  EXPECT_THAT(read_file("/proc/" + std::to_string(link) + "/status"),
              HasSubstr("\nUid:\t65534\t65534\t65534\t65534\n"));
}

}  // namespace
}  // namespace tarvio_test
