// A power cut in the middle of an installation: what the next start makes of it, with a stand-in
// for opkg and with real releases.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/owners.h"
#include "board.h"
#include "fleet/file_sha256.h"
#include "opkg/real_opkg.h"
#include "support/apps/applications.h"
#include "support/fleet/https_server.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::StartsWith;

constexpr char kStatus[] = "/usr/lib/opkg/status";
constexpr char kRuns[] = "/run/scripts/postinst";
constexpr char kHangs[] = "/run/scripts/postinst.hangs";

// A broker, a server with a package, an operator and an agent.
class Installing {
 public:
  void start(const std::string& package) {
    fs::copy_file(package, server_.file("app.tbx"));
    agent_ = std::make_unique<AgentProcess>(
        "board-1", "require_signature: no\ndownload_ca_file: " + server_.authorities() + "\n");
    ASSERT_TRUE(agent_->program().says("connected to the broker"));
  }
  void ask(const std::string& id, const std::string& command) {
    Json arguments = Json::object();
    if (command == "remove") arguments = {{"package", "app"}};
    if (command == "install") {
      const fs::path file = server_.file("app.tbx");
      const tarvio::Fd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
      arguments = Json{{"url", HttpsServer::url("app.tbx")},
                       {"sha256", fleet::sha256_of(fd.get())},
                       {"size", fs::file_size(file)}};
    }
    const Json request = {
        {"id", id}, {"command", command}, {"arguments", arguments}, {"expires_in", 60}};
    watcher_.publish({.topic = "tarvio/v1/board-1/request",
                      .payload = request.dump(),
                      .response_topic = "tarvio/v1/board-1/answer/ann"});
  }
  Json answer(const std::string& id) {
    Json found;
    EXPECT_TRUE(watcher_.until([&] {
      found = watcher_.json_of("tarvio/v1/board-1/answer/ann");
      return found.is_object() && found["id"] == id;
    })) << agent_->program().errors();
    return found.is_object() ? found : Json{{"state", ""}};
  }
  // All that the board does at once, as a power cut ends it.
  void cut() {
    std::vector<pid_t> processes = {agent_->program().pid()};
    for (size_t at = 0; at < processes.size(); ++at) {
      ::kill(processes[at], SIGSTOP);  // else it could have more of them
      for (const pid_t child : children_of(processes[at])) processes.push_back(child);
    }
    for (const pid_t process : processes) ::kill(process, SIGKILL);
    agent_->program().kill();
    for (const pid_t process : processes) EXPECT_TRUE(ends(process));
  }
  AgentProcess& agent() { return *agent_; }
  Watcher& watcher() { return watcher_; }
  Json system() { return watcher_.json_of("tarvio/v1/board-1/system"); }

 private:
  const HttpsServer server_;
  BrokerProcess broker_;
  Watcher watcher_;
  std::unique_ptr<AgentProcess> agent_;
};

// The paragraph of a package in opkg's own records.
std::string record_of(const std::string& name) {
  const std::string text = fs::exists(kStatus) ? read_file(kStatus) : "";
  const size_t begin = text.find("Package: " + name + "\n");
  return begin == std::string::npos ? "" : text.substr(begin, text.find("\n\n", begin) - begin);
}

size_t lines_in(const std::string& file) {
  const std::string text = fs::exists(file) ? read_file(file) : "";
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class AgentCutStandIn : public testing::Test {
 protected:
  AgentCutStandIn() {
    use_built_programs();
    write_kernel_command_line("root=/dev/mtdblock4\n");
    sample_.write("control", "Package: app\nVersion: 1.0\nArchitecture: all\nMaintainer: H\n");
    const std::string file = sample_.beside("app.tbx");
    EXPECT_EQ(run_tarvio({"pack", sample_.path(), "-o", file}).status, 0);
    board_.start(file);
  }

  const SampleDirectory sample_;
  Installing board_;
};

TEST_F(AgentCutStandIn, IsRepairedWhereverItCame) {
  for (int round = 0; round < 8; ++round) {
    const std::string number = std::to_string(round);
    board_.ask("install" + number, "install");
    std::this_thread::sleep_for(std::chrono::milliseconds(40 * round));
    board_.cut();
    board_.agent().start();
    ASSERT_TRUE(board_.agent().program().says("connected to the broker"));
    board_.ask("install" + number, "install");
    const Json answer = board_.answer("install" + number);
    EXPECT_EQ(answer["state"], "done") << round << answer.dump();
    EXPECT_THAT(record_of("app"), HasSubstr("\nStatus: install user installed")) << round;
    board_.ask("remove" + number, "remove");
    EXPECT_EQ(board_.answer("remove" + number)["state"], "done") << round;
  }
  EXPECT_TRUE(fs::is_empty(board_.agent().directory() / "files"));
}

// Of a removal, the end may come without a record of it.
TEST_F(AgentCutStandIn, IsNoFailureOfARemovalThatWasDone) {
  board_.ask("r1", "install");
  ASSERT_EQ(board_.answer("r1")["state"], "done");
  board_.ask("r2", "remove");
  ASSERT_EQ(board_.answer("r2")["state"], "done");
  board_.cut();
  // As it was before the end.
  const fs::path journal = board_.agent().directory() / "journal";
  std::string text = read_file(journal);
  text.erase(text.find("{\"finished\":\"r2\""));
  write_file(journal, text);
  const size_t before = board_.watcher().count_of("tarvio/v1/board-1/answer/ann");
  board_.agent().start();
  ASSERT_TRUE(board_.watcher().until(
      [&] { return board_.watcher().count_of("tarvio/v1/board-1/answer/ann") > before; }));
  const Json answer = board_.answer("r2");
  EXPECT_EQ(answer["state"], "done") << answer.dump();
  EXPECT_THAT(answer["note"].get<std::string>(), HasSubstr("it was run again"));
}

class AgentCut : public RealOpkg {
 protected:
  // Before most of the file system becomes read-only.
  AgentCut() {
    use_built_programs();
    board_ = std::make_unique<Installing>();
  }
  void SetUp() override {
    RealOpkg::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    write_file("/etc/passwd", "root:x:0:0::/:/bin/sh\nnobody:x:65534:65534::/:/bin/sh\n");
    ASSERT_EQ(install(package("base", "1.0")).status, 0);  // no device is without any
    const fs::path directory = fs::path(package("app", "1.0")).parent_path();
    fs::create_directories("/run/scripts");
    write_program(directory / "postinst", std::string("#!/bin/sh\necho >>") + kRuns +
                                              "\nwhile [ -e " + kHangs +
                                              " ]; do sleep 0.1; done\n");
    board_->start(pack(directory));
  }
  void begin_to_install() {
    write_file(kHangs, "");
    board_->ask("r1", "install");
    ASSERT_TRUE(eventually([] { return lines_in(kRuns) == 1; }));
  }
  bool says_unfinished(const Json& names) {
    return board_->watcher().until([&] {
      const Json system = board_->system();
      return system.is_object() && system["unfinished"] == names;
    });
  }

  std::unique_ptr<Installing> board_;
};

INSTANTIATE_TEST_SUITE_P(Releases, AgentCut, testing::Values(kOpkg018, kOpkg044));

TEST_P(AgentCut, IsRepairedByInstallingAgainAndSaid) {
  begin_to_install();
  board_->cut();
  EXPECT_EQ(record_of("app"), "");
  fs::remove(kHangs);
  board_->agent().start();
  const Json answer = board_->answer("r1");
  EXPECT_EQ(answer["state"], "done") << answer.dump();
  EXPECT_EQ(
      answer["note"],
      "the board or its agent went down in the middle of this request; it was run again; opkg "
      "had left half done: app");
  EXPECT_THAT(record_of("app"), HasSubstr("\nStatus: install user installed"));
  EXPECT_EQ(lines_in(kRuns), 2U);  // the first one was cut
  EXPECT_TRUE(says_unfinished(Json::array()));
}

// Nobody is asked to do anything about it.
TEST_P(AgentCut, IsSaidWhenItIsOfNoRequest) {
  begin_to_install();
  board_->cut();
  fs::remove(kHangs);
  fs::remove(board_->agent().directory() / "journal");
  board_->agent().start();
  EXPECT_TRUE(says_unfinished({"app"}));
  board_->ask("r2", "install");
  EXPECT_EQ(board_->answer("r2")["state"], "done");
  EXPECT_TRUE(says_unfinished(Json::array()));
}

// What it has begun goes on without it, and is not begun beside that.
TEST_P(AgentCut, IsNotThatOfTheAgentAlone) {
  begin_to_install();
  // What ends meanwhile has nothing to do with it.
  board_->ask("l1", "list");
  EXPECT_EQ(board_->answer("l1")["state"], "done");
  board_->agent().program().kill();
  board_->agent().start();
  ASSERT_TRUE(board_->agent().program().says("still goes on, and is waited for"));
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  EXPECT_EQ(lines_in(kRuns), 1U);
  fs::remove(kHangs);
  const Json answer = board_->answer("r1");
  EXPECT_EQ(answer["state"], "done") << answer.dump();
  EXPECT_EQ(lines_in(kRuns), 1U);
  EXPECT_THAT(record_of("app"), HasSubstr("\nStatus: install user installed"));
}

}  // namespace
}  // namespace tarvio_test
