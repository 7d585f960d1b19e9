// Packages that come to the board from a server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>

#include "base/owners.h"
#include "board.h"
#include "fleet/file_sha256.h"
#include "support/flash/flash_device.h"
#include "support/fleet/https_server.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"
#include "tarvio/signatures/signed_packages.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string sha256_of(const std::filesystem::path& file) {
  const tarvio::Fd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  return fleet::sha256_of(fd.get());
}

class AgentInstall : public SignedPackages {
 protected:
  AgentInstall() {
    use_built_programs();
    trust();
    sign();
    serve();
  }

  // The package, and its signature if it has one.
  void serve() const {
    for (const char* ending : {"", ".minisig"}) {
      std::filesystem::remove(server_.file("clock.tbx" + std::string(ending)));
      if (!std::filesystem::exists(file() + ending)) continue;
      std::filesystem::copy_file(file() + ending, server_.file("clock.tbx" + std::string(ending)));
    }
  }
  Json arguments() const {
    return {{"url", HttpsServer::url("clock.tbx")},
            {"sha256", sha256_of(file())},
            {"size", std::filesystem::file_size(file())}};
  }
  static std::string topic(const std::string& end) { return "tarvio/v1/board-1/" + end; }
  static std::string installed() {
    const Json list = Json::parse(run_tarvio({"list", "--json"}).output);
    return list.empty() ? "" : list[0]["version"].get<std::string>();
  }
  void start_agent(const std::string& lines = "") {
    agent_ = std::make_unique<AgentProcess>(
        "board-1", "download_ca_file: " + server_.authorities() + "\n" + lines);
    ASSERT_TRUE(agent_->program().says("connected to the broker"));
  }
  void send(const Json& what, const std::string& id = "r1") {
    watcher_.publish(
        {.topic = topic("request"),
         .payload =
             Json{{"id", id}, {"command", "install"}, {"arguments", what}, {"expires_in", 60}}
                 .dump(),
         .response_topic = topic("answer/ann")});
  }
  Json answer(const std::string& id = "r1") {
    Json found;
    EXPECT_TRUE(watcher_.until([&] {
      found = watcher_.json_of(topic("answer/ann"));
      return found.is_object() && found["id"] == id;
    })) << agent_->program().errors();
    return found.is_object() ? found : Json{{"state", ""}, {"message", ""}};
  }
  Json install(const Json& what) {
    send(what);
    return answer();
  }
  bool has_left_files() const { return !std::filesystem::is_empty(agent_->directory() / "files"); }

  const HttpsServer server_;
  BrokerProcess broker_;
  Watcher watcher_;
  std::unique_ptr<AgentProcess> agent_;
};

TEST_F(AgentInstall, FetchesAndInstallsAPackage) {
  start_agent();
  const Json done = install(arguments());
  EXPECT_EQ(done["state"], "done") << done.dump();
  EXPECT_EQ(installed(), "1.0");
  EXPECT_FALSE(has_left_files());
  EXPECT_TRUE(watcher_.until([this] {
    const Json packages = watcher_.json_of(topic("packages"));
    return packages.is_array() && !packages.empty() && packages[0]["version"] == "1.0";
  }));
}

TEST_F(AgentInstall, NeedsASignatureWhateverThePolicySays) {
  set_policy("require_signature: no\n");
  std::filesystem::remove(server_.file("clock.tbx.minisig"));
  start_agent();
  const Json refused = install(arguments());
  EXPECT_EQ(refused["state"], "failed");
  EXPECT_THAT(refused["message"].get<std::string>(),
              HasSubstr("cannot fetch 'https://localhost:8443/clock.tbx.minisig'"));
  EXPECT_EQ(installed(), "");
}

TEST_F(AgentInstall, RefusesTheSignatureOfAnUnknownKey) {
  sign("other");
  serve();
  start_agent();
  const Json refused = install(arguments());
  EXPECT_EQ(refused["state"], "failed");
  EXPECT_EQ(refused["status"], 6);
  // The operator knows nothing of the file in which the package came.
  EXPECT_THAT(
      refused["message"].get<std::string>(),
      testing::AllOf(HasSubstr("cannot install 'https://localhost:8443/clock.tbx': its signature "
                               "'https://localhost:8443/clock.tbx.minisig' was made with unknown"),
                     testing::Not(HasSubstr("/files/"))));
  EXPECT_EQ(installed(), "");
  EXPECT_FALSE(has_left_files());
}

TEST_F(AgentInstall, DoesWithoutASignatureIfItsSettingsSaySo) {
  std::filesystem::remove(server_.file("clock.tbx.minisig"));
  start_agent("require_signature: no\n");
  EXPECT_EQ(install(arguments())["state"], "done");
  EXPECT_EQ(installed(), "1.0");
}

TEST_F(AgentInstall, RefusesAnotherFile) {
  start_agent();
  Json other = arguments();
  other["sha256"] = std::string(64, '0');
  const Json refused = install(other);
  EXPECT_EQ(refused["state"], "failed");
  EXPECT_EQ(refused["message"],
            "cannot fetch 'https://localhost:8443/clock.tbx': the SHA-256 of the file is not that "
            "of the request");
  EXPECT_EQ(installed(), "");
  EXPECT_FALSE(has_left_files());
}

TEST_F(AgentInstall, RefusesAFileOfAnotherSize) {
  start_agent();
  Json other = arguments();
  const auto size = other["size"].get<int>();
  other["size"] = size - 1;
  EXPECT_EQ(install(other)["message"],
            "cannot fetch 'https://localhost:8443/clock.tbx': the file has more than " +
                std::to_string(size - 1) + " bytes");
  other["size"] = size + 1;
  send(other, "r2");
  EXPECT_EQ(answer("r2")["message"],
            "cannot fetch 'https://localhost:8443/clock.tbx': the file has " +
                std::to_string(size) + " bytes, not " + std::to_string(size + 1));
}

TEST_F(AgentInstall, SaysWhatTheServerSays) {
  std::filesystem::remove(server_.file("clock.tbx"));
  start_agent();
  EXPECT_THAT(install(arguments())["message"].get<std::string>(),
              StartsWith("cannot fetch 'https://localhost:8443/clock.tbx': The requested URL "
                         "returned error: 404"));
}

TEST_F(AgentInstall, RefusesAServerThatIsNotTheOneThatIsMeant) {
  agent_ = std::make_unique<AgentProcess>();
  ASSERT_TRUE(agent_->program().says("connected to the broker"));
  EXPECT_THAT(install(arguments())["message"].get<std::string>(),
              HasSubstr("SSL certificate problem"));
}

TEST_F(AgentInstall, GoesOnAfterABreak) {
  start_agent();
  server_.break_after(100);
  send(arguments());
  ASSERT_TRUE(eventually([this] {
    return server_.requests().find("GET /clock.tbx bytes=100-") != std::string::npos;
  }));
  server_.go_on();
  EXPECT_EQ(answer()["state"], "done");
  EXPECT_EQ(installed(), "1.0");
}

// A server that sends nothing more is not waited for for ever.
TEST_F(AgentInstall, GoesOnAfterAServerThatStandsStill) {
  start_agent();
  server_.stall_after(100);
  send(arguments());
  EXPECT_TRUE(watcher_.until(
      [this] { return server_.requests().find("GET /clock.tbx bytes=100-") != std::string::npos; },
      std::chrono::seconds(50)));
  server_.go_on();
  EXPECT_EQ(answer()["state"], "done");
  EXPECT_EQ(installed(), "1.0");
}

// As a power cut leaves a file whose bytes were never written.
TEST_F(AgentInstall, FetchesAgainWhatACutHasSpoilt) {
  server_.stall_after(100);
  start_agent();
  send(arguments());
  const std::filesystem::path part = agent_->directory() / "files/r1.tbx.part";
  ASSERT_TRUE(eventually(
      [&] { return std::filesystem::exists(part) && std::filesystem::file_size(part) == 100; }));
  agent_->program().kill();
  write_file(part, std::string(200, '\0'));
  server_.go_on();
  agent_->start();
  EXPECT_EQ(answer()["state"], "done");
  EXPECT_THAT(server_.requests(), HasSubstr("GET /clock.tbx bytes=200-\nGET /clock.tbx\n"));
  EXPECT_EQ(installed(), "1.0");
}

TEST_F(AgentInstall, SaysThatTheDiskIsFull) {
  start_agent();
  agent_->program().kill();
  ASSERT_EQ(::mount("tmpfs", agent_->directory().c_str(), "tmpfs", 0, "size=512k"), 0);
  agent_->start();
  write_file(server_.file("large.tbx"), std::string(1'000'000, 'x'));
  Json large = arguments();
  large["url"] = "https://localhost:8443/large.tbx";
  large["size"] = 1'000'000;
  const Json failed = install(large);
  EXPECT_EQ(failed["state"], "failed");
  EXPECT_THAT(
      failed["message"].get<std::string>(),
      testing::AllOf(HasSubstr("/files/r1.tbx.part'"), HasSubstr("No space left on device")));
  EXPECT_TRUE(std::filesystem::is_empty(agent_->directory() / "files"));
  send(arguments(), "r2");
  EXPECT_EQ(answer("r2")["state"], "done");
  EXPECT_EQ(installed(), "1.0");
  agent_->program().kill();
  EXPECT_EQ(::umount(agent_->directory().c_str()), 0);
}

TEST_F(AgentInstall, SaysHowFarItIs) {
  server_.stall_after(100);
  start_agent();
  send(arguments());
  EXPECT_TRUE(watcher_.until([this] {
    const Json progress = watcher_.json_of(topic("progress"));
    return progress.is_object() && progress["id"] == "r1" && progress["step"] == "download" &&
           progress.contains("done");
  }));
  EXPECT_EQ(watcher_.json_of(topic("progress"))["total"], std::filesystem::file_size(file()));
  server_.go_on();
  EXPECT_EQ(answer()["state"], "done");
}

// As a power cut in the download, and in the installation.
TEST_F(AgentInstall, IsFinishedAfterAKill) {
  server_.stall_after(100);
  start_agent();
  send(arguments());
  ASSERT_TRUE(eventually(
      [this] { return server_.requests().find("GET /clock.tbx") != std::string::npos; }));
  agent_->program().kill();
  server_.go_on();
  agent_->start();
  const Json done = answer();
  EXPECT_EQ(done["state"], "done");
  EXPECT_EQ(done["note"],
            "the board or its agent went down in the middle of this request; it was run again");
  EXPECT_EQ(installed(), "1.0");
  EXPECT_FALSE(has_left_files());
}

// It may have been started a moment too late to end with the agent. Two at once spoil the file.
// What it says each second cannot be written then, as on a full disk.
TEST_F(AgentInstall, LeavesNoDownloadThatNobodyWaitsFor) {
  const TempDir place;
  shell(place.path(), "tarvio-transfer get " + HttpsServer::url("clock.tbx") + " file --ca-file " +
                          server_.authorities() + " >/dev/full; echo $? >status");
  EXPECT_EQ(read_file(place / "status"), "1\n");
  EXPECT_FALSE(std::filesystem::exists(place / "file"));
}

TEST_F(AgentInstall, RemovesAPackage) {
  start_agent();
  EXPECT_EQ(install(arguments())["state"], "done");
  watcher_.publish({.topic = topic("request"),
                    .payload = R"({"id":"r2","command":"remove","arguments":{"package":"clock"},)"
                               R"("expires_in":60})",
                    .response_topic = topic("answer/ann")});
  EXPECT_EQ(answer("r2")["state"], "done");
  EXPECT_EQ(installed(), "");
}

TEST_F(AgentInstall, SendsABackup) {
  const FlashDevice device;
  device.make_area("/dev/mtd3", 16, "kernel ");
  start_agent();
  watcher_.publish({.topic = topic("request"),
                    .payload = R"({"id":"r2","command":"backup","arguments":{"areas":["kernel"],)"
                               R"("url":"https://localhost:8443/backup.tbx"},"expires_in":60})",
                    .response_topic = topic("answer/ann")});
  const Json done = answer("r2");
  EXPECT_EQ(done["state"], "done") << done.dump();
  EXPECT_EQ(run_tarvio({"inspect", server_.file("backup.tbx")}).status, 0);
  EXPECT_FALSE(has_left_files());
}

}  // namespace
}  // namespace tarvio_test
