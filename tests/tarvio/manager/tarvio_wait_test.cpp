// tarvio wait, and the option --wait-manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <future>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "manager/wait_states.h"
#include "support/children.h"
#include "support/com/one_reply.h"
#include "support/programs/tarvio.h"
#include "support/programs/written_state.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

using client::AppFacts;
using client::is_in_state;
using client::ManagerState;
using nlohmann::json;
using runtime::AppState;
using testing::HasSubstr;

using Line = std::vector<std::string>;

constexpr char kRunning[] = "app\tclock\trunning\t1\t1700000000\t1\t-\t1.0\t1.0\n";
constexpr char kStopped[] = "app\tclock\tstopped\t0\t0\t0\t-\t1.0\t-\n";

ManagerState with_app(AppState state, int starts) {
  ManagerState all;
  AppFacts app;
  app.name = "clock";
  app.state = state;
  app.starts = starts;
  all.apps.push_back(app);
  return all;
}

ManagerState with_status(int32_t level) {
  ManagerState all;
  all.statuses.push_back({"clock", level, ""});
  return all;
}

TEST(ClientWaitStates, AreThoseOfAProcess) {
  EXPECT_TRUE(is_in_state(with_app(AppState::kRunning, 1), "clock", "running"));
  EXPECT_FALSE(is_in_state(with_app(AppState::kRunning, 1), "clock", "ended"));
  EXPECT_FALSE(is_in_state(with_app(AppState::kRunning, 1), "radio", "running"));
  for (const AppState other :
       {AppState::kStopped, AppState::kStopping, AppState::kEnded, AppState::kRestarting}) {
    EXPECT_FALSE(is_in_state(with_app(other, 1), "clock", "running"));
  }
  EXPECT_TRUE(is_in_state(with_app(AppState::kEnded, 1), "clock", "ended"));
  EXPECT_TRUE(is_in_state(with_app(AppState::kStopped, 1), "clock", "ended"));
  EXPECT_FALSE(is_in_state(with_app(AppState::kStopped, 0), "clock", "ended")) << "never started";
  EXPECT_FALSE(is_in_state(with_app(AppState::kRestarting, 1), "clock", "ended"));
}

TEST(ClientWaitStates, AreThoseOfAStatus) {
  EXPECT_TRUE(is_in_state(with_status(0), "clock", "normal"));
  EXPECT_TRUE(is_in_state(with_status(1), "clock", "warning"));
  EXPECT_TRUE(is_in_state(with_status(2), "clock", "error"));
  EXPECT_FALSE(is_in_state(with_status(0), "clock", "gone"));
  EXPECT_TRUE(is_in_state(with_status(0), "radio", "gone"));
  EXPECT_FALSE(is_in_state(with_status(0), "radio", "normal"));
}

// Whether a process waits for changes of files.
bool has_inotify(pid_t pid) {
  std::error_code error;
  for (const auto& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
    const auto target = std::filesystem::read_symlink(entry.path(), error);
    if (target.string().find("inotify") != std::string::npos) return true;
  }
  return false;
}

// A run of the client; work is done while it waits for changes of files.
Ran run_while(const Line& line, const std::function<void()>& work) {
  const TempDir directory;
  const auto pid_file = directory / "pid";
  auto ran = std::async(std::launch::async, [&] {
    return run_tarvio(line, [&] { write_file(pid_file, std::to_string(::getpid())); });
  });
  EXPECT_TRUE(eventually([&] {
    if (!std::filesystem::exists(pid_file)) return false;
    const std::string pid = read_file(pid_file);
    return !pid.empty() && has_inotify(std::stoi(pid));
  }));
  work();
  return ran.get();
}

TEST(ClientWait, EndsAtOnceInThatState) {
  write_state(kRunning);
  const Ran run = run_tarvio({"wait", "clock", "--state", "running"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "clock is running\n");
  EXPECT_EQ(json::parse(run_tarvio({"wait", "clock", "--state", "running", "--json"}).output),
            json({{"name", "clock"}, {"state", "running"}}));
}

TEST(ClientWait, EndsWhenTheManagerHasWrittenThatState) {
  write_state(kStopped);
  const Ran run = run_while({"wait", "clock", "--state", "running", "--timeout", "0"}, [] {
    write_state(std::string(kStopped) + "status\t0\tdisk\tok\n");
    write_state(kRunning);
  });
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "clock is running\n");
}

TEST(ClientWait, GoesOnWithAnotherManager) {
  write_state(kStopped);
  const Ran run = run_while({"wait", "clock", "--state", "running", "--timeout", "0"}, [] {
    std::filesystem::remove(runtime::kStatePath);
    put_state("unfinished");
    write_state(kRunning);
  });
  EXPECT_EQ(run.status, 0);
}

TEST(ClientWait, GivesUpAndSaysHowItIs) {
  write_state(std::string(kStopped) + "status\t2\tclock\tdisk full\n");
  const Ran run = run_tarvio({"wait", "clock", "--state", "running", "--timeout", "0.05"});
  EXPECT_EQ(run.status, 5);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(
      run.errors,
      "tarvio: 'clock' did not become running in time: it is stopped, with the status error: disk "
      "full; use --timeout SECONDS to wait longer\n");
  EXPECT_THAT(
      run_tarvio({"wait", "radio", "--state", "ended", "--timeout", "0.05"}).errors,
      HasSubstr("'radio' did not become ended in time: it is not an application that the manager "
                "knows, without a status"));
}

TEST(ClientWait, SaysThatTheManagerWent) {
  write_state(kStopped);
  const Ran run = run_while({"wait", "clock", "--state", "running", "--timeout", "0.5"},
                            [] { std::filesystem::remove(runtime::kStatePath); });
  EXPECT_EQ(run.status, 3);
}

TEST(ClientWait, NeedsAKnownState) {
  const Ran run = run_tarvio({"wait", "clock", "--state", "up"});
  EXPECT_EQ(run.status, 64);
  EXPECT_EQ(run.errors,
            "tarvio: unknown state 'up'; use one of normal, warning, error, gone, running, ended; "
            "try 'tarvio wait --help'\n");
  EXPECT_EQ(run_tarvio({"wait", "clock"}).errors,
            "tarvio: option '--state STATE' is missing; try 'tarvio wait --help'\n");
}

// A run of the client; work is done after it was started.
Ran run_before(const Line& line, const std::function<void()>& work) {
  const TempDir directory;
  const auto started = directory / "started";
  auto ran = std::async(std::launch::async,
                        [&] { return run_tarvio(line, [&] { write_file(started, ""); }); });
  EXPECT_TRUE(eventually([&] { return std::filesystem::exists(started); }));
  work();
  return ran.get();
}

// The first connection is the look whether the manager is there.
class WithWait : public testing::Test {
 protected:
  static void answer(const std::string& reply) {
    std::filesystem::create_directories(std::filesystem::path(TQ_COM_SOCKET_PATH).parent_path());
    const Socket listener = listen_on(TQ_COM_SOCKET_PATH);
    EXPECT_EQ(accept_on(listener).read_to_end(), "");
    const Socket client = accept_on(listener);
    client.read_to_end();
    client.send(reply);
  }
};

using ClientWaitManager = WithWait;

TEST_F(ClientWaitManager, WaitsForTheSocket) {
  const Ran run = run_before({"status", "--wait-manager=60"}, [] { answer("clock\n0\nok\n"); });
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "NAME   STATE   DETAIL\nclock  normal  ok\n");
}

TEST_F(ClientWaitManager, WaitsForTheDirectoryOfTheSocketToo) {
  std::filesystem::remove_all(std::filesystem::path(TQ_COM_SOCKET_PATH).parent_path());
  const Ran run = run_before({"--wait-manager", "stop", "clock"}, [] { answer("0\n\n"); });
  EXPECT_EQ(run.output, "stopped clock\n");
}

TEST_F(ClientWaitManager, IsNotMisledByTheSocketThatOneLeft) {
  listen_on(TQ_COM_SOCKET_PATH).close();
  const Ran run = run_before({"stop", "clock", "--wait-manager=0"}, [] { answer("0\n\n"); });
  EXPECT_EQ(run.output, "stopped clock\n");
}

TEST_F(ClientWaitManager, WaitsForTheState) {
  for (const Line& line : {Line{"is-running", "clock"}, Line{"status", "--wide", "--apps"},
                           Line{"wait", "clock", "--state", "running"}, Line{"metrics"}}) {
    std::filesystem::remove_all(runtime::kRunDirectory);
    const bool is_asked_too = line.front() == "status";
    Line waiting = line;
    waiting.emplace_back("--wait-manager=60");
    const Ran run = run_before(waiting, [&] {
      const Socket listener = is_asked_too ? listen_on(TQ_COM_SOCKET_PATH) : Socket();
      write_state(kRunning);
      if (is_asked_too) accept_on(listener).read_to_end();
    });
    EXPECT_EQ(run.status, 0) << line.front() << run.errors;
    EXPECT_THAT(run.output, HasSubstr("clock"));
  }
}

TEST_F(ClientWaitManager, GivesUp) {
  for (const Line& line :
       {Line{"status"}, Line{"metrics"}, Line{"start", "clock"}, Line{"refresh"}}) {
    Line waiting = line;
    waiting.emplace_back("--wait-manager=0.05");
    const Ran run = run_tarvio(waiting);
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.errors,
              "tarvio: no manager answers on " TQ_COM_SOCKET_PATH "; is tarviod running?\n");
  }
  EXPECT_EQ(run_tarvio({"is-running", "clock", "--wait-manager=0.05"}).status, 4);
}

TEST_F(ClientWaitManager, TakesANumberOfSecondsAfterAnEqualsSign) {
  EXPECT_EQ(run_tarvio({"status", "--wait-manager=x"}).errors,
            "tarvio: wait-manager 'x' is not a number of seconds; try 'tarvio status --help'\n");
  EXPECT_EQ(run_tarvio({"list", "--wait-manager"}).errors,
            "tarvio: unknown option '--wait-manager'; try 'tarvio list --help'\n");
  EXPECT_EQ(run_tarvio({"start-all", "--wait-manager", "5"}).errors,
            "tarvio: unexpected argument '5'; try 'tarvio start-all --help'\n");
}

}  // namespace
}  // namespace tarvio_test
