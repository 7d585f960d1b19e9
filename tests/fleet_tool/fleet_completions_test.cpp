// Completion of the command line of the operator's tool in the shells.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "shell_completion.h"
#include "support/programs/terminal.h"
#include "tool.h"

namespace tarvio_test {
namespace {

TEST(FleetCompletions, AreThoseOfTheCommands) { expect_completions_of_the_commands(); }

TEST(FleetCompletions, HaveTheWordsOfTheHelp) { expect_words_of_the_help(); }

class FleetCompletion : public FleetTool, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (!is_installed(GetParam())) GTEST_SKIP() << GetParam() << " is not installed";
    // Where the tool looks by itself.
    std::filesystem::create_directories(home_ / ".config/tarvio");
    std::filesystem::copy(settings(), home_ / ".config/tarvio/fleet.conf");
    std::filesystem::current_path(home_.path());
  }

  Words offered(const Line& line) const {
    return offered_by(GetParam(), TARVIO_FLEET, line, home_.path());
  }

  const Terminal terminal_;
};

INSTANTIATE_TEST_SUITE_P(Shells, FleetCompletion, testing::Values("bash", "zsh", "fish"),
                         [](const auto& shell) { return std::string(shell.param); });

TEST_P(FleetCompletion, OffersCommandsAndOptions) {
  EXPECT_EQ(offered({""}), (Words{"devices", "status", "start", "stop", "restart", "rollout",
                                  "resume", "history", "help"}));
  EXPECT_EQ(offered({"st"}), (Words{"start", "status", "stop"}));
  EXPECT_EQ(offered({"devices", "-"}),
            (Words{"--online", "--match", "--config", "--json", "--quiet", "--timeout", "--help"}));
  EXPECT_EQ(offered({"start", ""}), Words{});
}

TEST_P(FleetCompletion, OffersPackageFiles) {
  write_file(home_ / "clock.tbx", "");
  EXPECT_EQ(offered({"rollout", "--file", "cl"}), Words{"clock.tbx"});
}

TEST_P(FleetCompletion, OffersBoards) {
  const AnsweringBoard one("board-1");
  const AnsweringBoard other("desk-1");
  Watcher watcher;
  EXPECT_TRUE(watcher.until([&] { return !watcher.text_of("tarvio/v1/desk-1/apps").empty(); }));
  EXPECT_EQ(offered({"start", "clock", "--to", ""}), (Words{"board-1", "desk-1"}));
  EXPECT_EQ(offered({"devices", "--match=d"}), Words{"desk-1"});
}

TEST_P(FleetCompletion, OffersRollouts) {
  const AnsweringBoard board("board-1");
  write_file(home_ / "clock.tbx", "a package");
  Watcher watcher;
  EXPECT_TRUE(watcher.until([&] { return !watcher.text_of("tarvio/v1/board-1/apps").empty(); }));
  const Ran ran = run({"rollout", "https://server/clock.tbx", "--to", "*", "--file",
                       home_ / "clock.tbx", "--json"});
  EXPECT_EQ(ran.status, 0) << ran.errors;
  const std::string id = Json::parse(ran.output.substr(0, ran.output.find('\n')))["id"];
  EXPECT_EQ(offered({"resume", ""}), Words{id});
  EXPECT_EQ(offered({"history", "2"}), Words{id});
}

TEST_P(FleetCompletion, OffersNothingWithoutABroker) {
  broker_.kill();
  EXPECT_EQ(offered({"start", "clock", "--to", ""}), Words{});
}

}  // namespace
}  // namespace tarvio_test
