// The board's own trouble: an agent that is killed at any moment, a full disk, a journal that is
// not whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "board.h"
#include "support/apps/applications.h"
#include "support/programs/tarvio.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {
namespace {

using testing::AnyOf;
using testing::Eq;
using testing::HasSubstr;

class AgentFaults : public WithBoard {
 protected:
  void SetUp() override { ASSERT_TRUE(is_online()); }

  static Json clock() {
    return Json::parse(run_tarvio({"status", "--wide", "--json"}).output).at(0);
  }
};

TEST_F(AgentFaults, RunNothingTwiceWhereverTheAgentIsKilled) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  ASSERT_EQ(ask("first", "start", {{"app", "clock"}})["state"], "done");
  int done = 0;
  constexpr int kRounds = 16;
  for (int round = 0; round < kRounds; ++round) {
    const std::string id = "r" + std::to_string(round);
    const std::string restart = request(id, "restart", {{"app", "clock"}});
    send(restart);
    watcher_.watch(std::chrono::milliseconds(round * 3));
    agent_.program().kill();
    agent_.start();
    ASSERT_TRUE(agent_.program().says("connected to the broker"));
    // The broker may have been told that it has come before it was written down: who gets no answer
    // asks again.
    send(restart);
    const std::string state = answer_to(id)["state"];
    EXPECT_THAT(state, AnyOf("done", "interrupted"));
    if (state == "done") ++done;
    const size_t before = watcher_.count_of(topic("answer/ann"));
    send(restart);
    ASSERT_TRUE(watcher_.until([&] { return watcher_.count_of(topic("answer/ann")) > before; }));
    EXPECT_EQ(answer_to(id)["state"], state);
  }
  // What was interrupted may have been done.
  const int starts = clock()["starts"];
  EXPECT_LE(starts, 1 + kRounds);
  EXPECT_GE(starts, 1 + done);
}

TEST_F(AgentFaults, AreNoneOfTheRequestsWhenTheJournalIsTorn) {
  ASSERT_EQ(ask("r1", "list")["state"], "done");
  const std::string journal = agent_.directory() / "journal";
  ASSERT_TRUE(eventually(
      [&] { return read_file(journal).find("{\"delivered\":\"r1\"}") != std::string::npos; }));
  agent_.program().kill();
  write_file(journal, read_file(journal) + "{\"asked\":\"r2\",\"top" + std::string(100, '\0'));
  agent_.start();
  EXPECT_TRUE(
      agent_.program().says("journal' are not whole, as after a power cut, and 1 were left"));
  send(request("r1", "list"));
  EXPECT_FALSE(answer_to("r1", 2).contains("result"));
  EXPECT_EQ(ask("r2", "list")["state"], "done");
}

TEST_F(AgentFaults, LeaveNoFilesOfRequestsThatAreNotRunAgain) {
  agent_.program().kill();
  std::filesystem::create_directories(agent_.directory() / "files");
  write_file(agent_.directory() / "files/old.tbx", "of a backup");
  agent_.start();
  EXPECT_EQ(ask("r1", "list")["state"], "done");
  EXPECT_TRUE(std::filesystem::is_empty(agent_.directory() / "files"));
}

// A file system of a few pages that is full, from the beginning or in the middle.
TEST_F(AgentFaults, MayBeAFullDisk) {
  agent_.program().kill();
  std::filesystem::remove_all(agent_.directory());
  std::filesystem::create_directory(agent_.directory());
  ASSERT_EQ(::mount("tmpfs", agent_.directory().c_str(), "tmpfs", 0, "size=96k"), 0);
  const auto fill = [&] {
    std::ofstream stream(agent_.directory() / "filler");
    while (stream << std::string(1024, 'x') << std::flush) {
    }
  };
  // More than what is left of a page.
  const auto refused = [&](const std::string& id) {
    send(request(id, "list") + std::string(8000, ' '));
    const Json answer = answer_to(id);
    EXPECT_EQ(answer["state"], "refused");
    EXPECT_THAT(answer["message"].get<std::string>(),
                AllOf(HasSubstr("the request cannot be recorded: cannot write '"),
                      HasSubstr("No space left on device")));
  };
  fill();
  agent_.start();
  refused("r1");
  std::filesystem::remove(agent_.directory() / "filler");
  EXPECT_EQ(ask("r2", "list")["state"], "done");
  fill();
  refused("r3");
  EXPECT_FALSE(agent_.program().has_ended());
  std::filesystem::remove(agent_.directory() / "filler");
  EXPECT_EQ(ask("r4", "list")["state"], "done");
  agent_.program().kill();
  ::umount2(agent_.directory().c_str(), MNT_DETACH);
}

// No tarvio, as in the middle of its own upgrade.
TEST_F(AgentFaults, MayBeAProgramThatIsMissing) {
  agent_.program().kill();
  const std::string before = ::getenv("PATH");
  const TempDir programs;
  std::filesystem::create_symlink(std::string(TARVIO_PROGRAMS) + "/tarvio-agent-link",
                                  programs / "tarvio-agent-link");
  ::setenv("PATH", programs.path().c_str(), 1);
  agent_.start();
  ::setenv("PATH", before.c_str(), 1);
  const Json answer = ask("r1", "list");
  EXPECT_EQ(answer["state"], "failed");
  EXPECT_EQ(answer["message"], "cannot run 'tarvio': No such file or directory");
  EXPECT_FALSE(agent_.program().has_ended());
}

TEST_F(AgentFaults, SaysThatItsOtherProgramIsMissing) {
  agent_.program().kill();
  const std::string before = ::getenv("PATH");
  ::setenv("PATH", "/nowhere", 1);
  agent_.start();
  ::setenv("PATH", before.c_str(), 1);
  EXPECT_EQ(agent_.program().end(), 1);
  EXPECT_THAT(agent_.program().errors(),
              testing::HasSubstr("cannot start 'tarvio-agent-link': No such file or directory"));
}

}  // namespace
}  // namespace tarvio_test
