// Which boards an operator means.
#include "expression.h"

#include <gtest/gtest.h>

#include <string>

#include "commands/command.h"

namespace tarvio_test {
namespace {

using client::Json;
using fleet_tool::Board;
using fleet_tool::Expression;

Board board() {
  return {.name = "board-17",
          .is_online = true,
          .system = {{"tags", {"lab", "eu"}}},
          .apps = Json::array({{{"name", "clock"}, {"run_state", "running"}},
                               {{"name", "log"}, {"run_state", nullptr}}}),
          .packages = Json::array({{{"name", "clock"}, {"version", "1.10"}}})};
}

bool matches(const std::string& text) { return Expression(text).matches(board()); }

TEST(FleetExpression, MeansABoard) {
  for (const char* text :
       {"board-17", "*", "board-*", "board-1?", "tag:lab", "online", "!offline", "tag:lab,tag:eu",
        "tag:x|tag:eu", "!tag:x", "package:clock", "package:clock=1.10", "package:clock>1.9",
        "package:clock>=1.10", "package:clock<=1.10", "package:clock<2", "app:clock=running",
        "nobody|online,board-*"}) {
    EXPECT_TRUE(matches(text)) << text;
  }
}

TEST(FleetExpression, MeansOtherBoards) {
  for (const char* text :
       {"board-1", "oard*", "BOARD-17", "tag:la", "offline", "!online", "tag:lab,tag:x",
        "package:radio", "package:clock=1.1", "package:clock<1.9", "package:clock>1.10",
        "app:clock=stopped", "app:log=running", "app:radio=running", "!*", "nobody,online"}) {
    EXPECT_FALSE(matches(text)) << text;
  }
}

// A board that has never said anything of its packages has none that is known.
TEST(FleetExpression, KnowsNothingOfASilentBoard) {
  const Board silent = {
      .name = "new", .is_online = false, .system = {}, .apps = {}, .packages = {}};
  EXPECT_TRUE(Expression("new").matches(silent));
  EXPECT_FALSE(Expression("package:clock").matches(silent));
  EXPECT_FALSE(Expression("tag:lab").matches(silent));
  EXPECT_FALSE(Expression("app:clock=running").matches(silent));
}

TEST(FleetExpression, IsRefusedWithTheReason) {
  const struct {
    const char* text;
    const char* why;
  } rows[] = {
      {"", "a part of EXPR is empty"},
      {"a,,b", "a part of EXPR is empty"},
      {"a|", "a part of EXPR is empty"},
      {"!", "a part of EXPR is empty"},
      {"package:", "'package:' is not package:NAME or package:NAME<VERSION"},
      {"package:clock<", "'package:clock<' is not package:NAME or package:NAME<VERSION"},
      {"package:clock=>1", "'package:clock=>1' is not package:NAME or package:NAME<VERSION"},
      {"app:clock", "'app:clock' is not app:NAME=STATE"},
      {"state:x",
       "'state:x' is not a part of EXPR: write a name, tag:, package:, app:, online or offline"},
  };
  for (const auto& row : rows) {
    try {
      const Expression expression(row.text);
      ADD_FAILURE() << row.text;
    } catch (const client::UsageError& error) {
      EXPECT_STREQ(error.what(), row.why);
    }
  }
}

TEST(FleetBoards, LoseABoardThatIsRemovedFromTheBroker) {
  fleet_tool::Boards boards;
  take({.topic = "tarvio/v1/board-1/online", .payload = R"({"online":true})"}, boards);
  EXPECT_TRUE(boards.at("board-1").is_online);
  take({.topic = "tarvio/v1/board-1/online", .payload = ""}, boards);
  EXPECT_TRUE(boards.empty());
}

}  // namespace
}  // namespace tarvio_test
