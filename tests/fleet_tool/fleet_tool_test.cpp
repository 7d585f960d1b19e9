// What an operator sees of a fleet, and what he does to its applications.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/owners.h"
#include "tool.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class FleetOfThree : public FleetTool {
 protected:
  FleetOfThree() {
    boards_.push_back(
        std::make_unique<AnsweringBoard>("board-1", AnsweringBoard::done, Json{"lab", "eu"}));
    boards_.push_back(std::make_unique<AnsweringBoard>(
        "board-2",
        [](const Json&) {
          return std::pair{"failed", "no such application"};
        },
        Json{"lab"}));
    boards_.push_back(std::make_unique<AnsweringBoard>("board-3"));
    Watcher watcher;
    watcher.publish({.topic = "tarvio/v1/board-0/online",
                     .payload = R"({"online":false})",
                     .is_retained = true});
    EXPECT_TRUE(watcher.until([&] {
      return !watcher.text_of("tarvio/v1/board-0/online").empty() &&
             !watcher.text_of("tarvio/v1/board-3/apps").empty();
    }));
  }

  std::vector<std::unique_ptr<AnsweringBoard>> boards_;
};

TEST_F(FleetOfThree, IsListed) {
  const Ran ran = run({"devices"});
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.errors, "");
  EXPECT_EQ(ran.output,
            "BOARD    STATE    TAGS    APPLICATIONS  PACKAGES  AGENT\n"
            "board-0  offline  -       -             -         -\n"
            "board-1  online   lab,eu  1             1         9.9\n"
            "board-2  online   lab     1             1         9.9\n"
            "board-3  online   -       1             1         9.9\n");
}

TEST_F(FleetOfThree, IsListedInPart) {
  const auto names = [this](std::vector<std::string> options) {
    options.insert(options.begin(), "devices");
    std::string text;
    for (const Json& board : json(options)) text += board["name"].get<std::string>() + " ";
    return text;
  };
  EXPECT_EQ(names({"--online"}), "board-1 board-2 board-3 ");
  EXPECT_EQ(names({"--match", "tag:lab,!tag:eu"}), "board-2 ");
  EXPECT_EQ(names({"--match", "offline|board-3"}), "board-0 board-3 ");
}

TEST_F(FleetOfThree, ShowsItsApplications) {
  const Ran ran = run({"status", "--match", "board-0|board-1"});
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.output,
            "BOARD    STATE    APPLICATION  RUNS     STATUS  VERSION\n"
            "board-0  offline  -            -        -       -\n"
            "board-1  online   clock        running  normal  1.0\n");
  EXPECT_EQ(json({"status", "--online"}).size(), 3U);
}

TEST_F(FleetOfThree, IsAskedAndSaysWhatEachHasAnswered) {
  const Ran ran = run({"start", "clock", "--to", "*"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.output, HasSubstr("board-1: done\n"));
  EXPECT_THAT(ran.output, HasSubstr("board-2: failed: no such application\n"));
  EXPECT_THAT(ran.output, HasSubstr("board-3: done\n"));
  ASSERT_EQ(boards_[0]->requests().size(), 1U);
  EXPECT_EQ(boards_[0]->requests()[0]["command"], "start");
  EXPECT_EQ(boards_[0]->requests()[0]["arguments"], Json({{"app", "clock"}}));
}

TEST_F(FleetTool, ShowsWhatABoardSaysWithoutDrivingTheTerminal) {
  const AnsweringBoard board("board-1", [](const Json&) {
    return std::pair{"failed", "\x1b[2Jall is well\nboard-2: done"};
  });
  const Ran ran = run({"start", "clock", "--to", "*"});
  EXPECT_EQ(ran.output, "board-1: failed: \\x1b[2Jall is well\\x0aboard-2: done\n");
}

TEST_F(FleetOfThree, IsAskedInPart) {
  EXPECT_EQ(run({"stop", "clock", "--to", "tag:eu"}).status, 0);
  EXPECT_EQ(run({"restart", "clock", "--to", "board-3"}).status, 0);
  EXPECT_EQ(boards_[0]->requests()[0]["command"], "stop");
  EXPECT_TRUE(boards_[1]->requests().empty());
  EXPECT_EQ(boards_[2]->requests()[0]["command"], "restart");
}

TEST_F(FleetOfThree, SaysThatNoBoardIsMeant) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"start", "clock", "--to", "tag:nobody"},
        {"start", "clock", "--to", "board-0"},
        {"status", "--match", "nobody"},
        {"devices", "--match", "nobody"}}) {
    const Ran ran = run(words);
    EXPECT_EQ(ran.status, 12);
    EXPECT_THAT(ran.errors, StartsWith("tarvio-fleet: no such board"));
  }
}

TEST_F(FleetTool, GivesUpABoardThatDoesNotAnswer) {
  const AnsweringBoard board("board-1", AnsweringBoard::silent);
  const Ran ran = run({"start", "clock", "--to", "*", "--answer-timeout", "1"});
  EXPECT_EQ(ran.status, 5);
  EXPECT_EQ(ran.output, "board-1: no answer: it has not answered in time\n");
}

TEST_F(FleetTool, SaysWhichBoardsItDoesNotAsk) {
  const AnsweringBoard board("board-1");
  Watcher watcher;
  watcher.publish(
      {.topic = "tarvio/v1/board-0/online", .payload = R"({"online":false})", .is_retained = true});
  ASSERT_TRUE(watcher.until([&] { return !watcher.text_of("tarvio/v1/board-1/apps").empty(); }));
  EXPECT_EQ(run({"start", "clock", "--to", "*"}).output,
            "1 board is meant and offline: board-0\nboard-1: done\n");
  EXPECT_EQ(json({"start", "clock", "--to", "*"})[0],
            Json({{"name", "board-0"}, {"state", "offline"}, {"message", "it was not asked"}}));
}

TEST_F(FleetTool, ShowsEachAnswerAsItComes) {
  const AnsweringBoard quick("board-1", [](const Json&) { return std::pair{"failed", "no"}; });
  const AnsweringBoard silent("board-2", AnsweringBoard::silent);
  Watcher watcher;
  ASSERT_TRUE(watcher.until([&] { return !watcher.text_of("tarvio/v1/board-2/apps").empty(); }));
  BackgroundProgram program(line({"start", "clock", "--to", "*", "--answer-timeout", "3"}));
  EXPECT_TRUE(eventually([&] { return program.output() == "board-1: failed: no\n"; }));
  EXPECT_FALSE(program.has_ended());
  EXPECT_EQ(program.end(), 1);
}

// A board that goes is asked no more, and once when it is back.
TEST_F(FleetTool, AsksABoardAgainWhenItIsBack) {
  const AnsweringBoard board("board-1", AnsweringBoard::silent);
  BackgroundProgram program(line({"start", "clock", "--to", "*", "--answer-timeout", "10"}));
  ASSERT_TRUE(eventually([&] { return board.requests().size() == 1; }));
  Watcher watcher;
  const auto say = [&](const char* text) {
    watcher.publish({.topic = "tarvio/v1/board-1/online", .payload = text, .is_retained = true});
    watcher.watch(std::chrono::milliseconds(600));
  };
  say(R"({"online":false})");
  EXPECT_EQ(board.requests().size(), 1U);
  say(R"({"online":true})");
  EXPECT_EQ(board.requests().size(), 2U);
}

// A host that is there and answers no connection: its queue of connections is full.
TEST_F(FleetTool, KeepsItsTimeLimitWhileItConnects) {
  const tarvio::Fd deaf(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(18831);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(deaf.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(deaf.get(), 0), 0);
  std::vector<tarvio::Fd> waiting;
  for (int count = 0; count < 4; ++count) {
    waiting.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    (void)connect(waiting.back().get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  write_file(settings(), "broker: 127.0.0.1:18831\ntls: no\n");
  const Ran ran = run({"devices", "--timeout", "1"});
  EXPECT_EQ(ran.status, 5);
  EXPECT_EQ(ran.errors,
            "tarvio-fleet: the broker 127.0.0.1:18831 does not answer: see whether it runs and can "
            "be reached from here\n");
}

TEST_F(FleetTool, SaysThatTheBrokerIsNotThere) {
  broker_.kill();
  const Ran ran = run({"devices"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(ran.errors,
            "tarvio-fleet: cannot connect to the broker 127.0.0.1:18830: Connection refused\n");
}

TEST_F(FleetTool, SaysThatTheBrokerKnowsNoBoards) {
  const Ran ran = run({"devices"});
  EXPECT_EQ(ran.status, 12);
  EXPECT_EQ(ran.errors, "tarvio-fleet: the broker knows no boards\n");
}

TEST_F(FleetTool, SaysWhatIsWrongWithItsSettings) {
  const struct {
    const char* text;
    const char* why;
  } rows[] = {
      {"broker: x:y\n", "fleet.conf:1: the value is not HOST or HOST:PORT\n"},
      {"device: x\n",
       "fleet.conf:1: unknown key: use operator, broker, tls, ca_file, certificate, key, user or "
       "password_file\n"},
      {"tls: no\n", "fleet.conf: has no broker: add the line 'broker: HOST'\n"},
  };
  for (const auto& row : rows) {
    write_file(settings(), row.text);
    const Ran ran = run({"devices"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(ran.errors, HasSubstr(row.why));
  }
}

TEST_F(FleetTool, RefusesAWrongCommandLine) {
  const struct {
    std::vector<std::string> words;
    const char* why;
  } rows[] = {
      {{"start", "clock"}, "option '--to EXPR' is missing; try 'tarvio-fleet start --help'\n"},
      {{"start", "--to", "*"},
       "the name of the APPlication is missing; try 'tarvio-fleet start --help'\n"},
      {{"boom"}, "unknown command 'boom'; try 'tarvio-fleet --help'\n"},
      {{"devices", "--match", "a,"},
       "a part of EXPR is empty; try 'tarvio-fleet devices --help'\n"},
      {{"rollout", "http://h/x", "--to", "*"},
       "URL 'http://h/x' does not begin with https://; try 'tarvio-fleet rollout --help'\n"},
      {{"rollout", "https://h/x", "--to", "*", "--upload", "x"},
       "--upload and --to-url are used together; try 'tarvio-fleet rollout --help'\n"},
      {{"rollout", "https://h/x", "--to", "*", "--upload", "x", "--to-url", "http://h/x?y"},
       "--to-url with a '?' or '#' cannot be used: FILE.minisig is sent to URL.minisig; try "
       "'tarvio-fleet rollout --help'\n"},
      {{"rollout", "https://h/x", "--to", "*", "--wave", "50%,25%"},
       "wave '50%,25%' is not a list of growing percentages such as 5%,25%,100%; try 'tarvio-fleet "
       "rollout --help'\n"},
  };
  for (const auto& row : rows) {
    const Ran ran = run(row.words);
    EXPECT_EQ(ran.status, 64);
    EXPECT_EQ(ran.errors, std::string("tarvio-fleet: ") + row.why);
  }
}

// Whom the access file of the broker lets read nothing.
TEST_F(FleetTool, SaysThatItMayNotRead) {
  broker_.kill();
  // The broker gives up root.
  std::filesystem::permissions(home_.path(), std::filesystem::perms(0755));
  write_file(home_ / "access", "user somebody\ntopic read x\n");
  const BrokerProcess strict("listener 18830 127.0.0.1\nallow_anonymous true\nacl_file " +
                             (home_ / "access").string() + "\n");
  const Ran ran = run({"devices", "--timeout", "1"});
  EXPECT_EQ(ran.status, 5);
  EXPECT_THAT(
      ran.errors,
      HasSubstr("may this user or certificate read tarvio/v1/# and tarvio-fleet/v1/marks/#?"));
}

// Who may look and no more.
TEST_F(FleetTool, SaysThatItMayNotPublish) {
  broker_.kill();
  std::filesystem::permissions(home_.path(), std::filesystem::perms(0755));
  write_file(home_ / "access",
             "topic readwrite tarvio/v1/board-1/online\ntopic read tarvio/v1/#\n"
             "topic readwrite tarvio-fleet/v1/marks/+\n");
  const BrokerProcess strict("listener 18830 127.0.0.1\nallow_anonymous true\nacl_file " +
                             (home_ / "access").string() + "\n");
  Watcher watcher;
  watcher.publish(
      {.topic = "tarvio/v1/board-1/online", .payload = R"({"online":true})", .is_retained = true});
  ASSERT_TRUE(watcher.until([&] { return !watcher.text_of("tarvio/v1/board-1/online").empty(); }));
  const Ran ran = run({"start", "clock", "--to", "*"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(ran.errors,
            "tarvio-fleet: the broker 127.0.0.1:18830 does not let this user or certificate "
            "publish to 'tarvio/v1/board-1/request': see the broker's access file\n");
}

}  // namespace
}  // namespace tarvio_test
