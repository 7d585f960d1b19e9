// tarvio restart, and what a start says of an application that has ended already.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/com/manager.h"
#include "support/com/replies.h"
#include "support/com/sockets.h"
#include "support/packages/package_listing.h"
#include "support/programs/tarvio.h"
#include "support/programs/written_state.h"
#include "tarvio/app.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

using ClientRestart = WithoutPackages;

TEST_F(ClientRestart, StopsAndStarts) {
  Replies manager({"0\n\n", "0\n\n"});
  const Ran run = run_tarvio({"restart", "clock"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "restarted clock\n");
  EXPECT_EQ(run.errors, "");
  EXPECT_THAT(manager.requests(), ElementsAre("stop_exact\nclock\n", "start_exact\nclock\n"));
}

TEST_F(ClientRestart, IsJsonForScripts) {
  const Replies manager({"0\n\n", "0\n\n"});
  EXPECT_EQ(json::parse(run_tarvio({"restart", "clock", "--json"}).output),
            json({{"command", "restart"},
                  {"name", "clock"},
                  {"exact", true},
                  {"code", 0},
                  {"message", "Success"}}));
}

TEST_F(ClientRestart, StartsNothingThatItCannotStop) {
  Replies manager({"13\n\n"});
  const Ran run = run_tarvio({"restart", "clock"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: cannot restart 'clock': Permission denied (13)\n");
  EXPECT_THAT(manager.requests(), ElementsAre("stop_exact\nclock\n"));
}

TEST_F(ClientRestart, SaysThatTheStartFailed) {
  const Replies manager({"0\n\n", "8\n\n"});
  const Ran run = run_tarvio({"restart", "clock"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: cannot restart 'clock': Exec format error (8)\n");
}

TEST_F(ClientRestart, SaysThatThereIsNoSuchApplication) {
  const Replies manager({"22\n\n"});
  EXPECT_EQ(run_tarvio({"restart", "radio"}).errors,
            "tarvio: cannot restart 'radio': no such application (22); see 'tarvio list --category "
            "application'\n");
}

TEST_F(ClientRestart, OfAnOlderManagerIsCarefulToo) {
  const ManagerProcess manager({{"webserver"}, {"web"}}, [] {
    linux_app_binding->start = [](tq_app_info*) { return 0; };
    linux_app_binding->stop = [](tq_app_info*) { return 0; };
  });
  add_package("web");
  add_package("webserver");
  EXPECT_THAT(run_tarvio({"restart", "web"}).errors, HasSubstr("may find 'webserver' first"));
  EXPECT_EQ(run_tarvio({"restart", "we", "--match"}).output, "restarted webserver\n");
}

// A manager whose state is another one after its last request.
class Manager {
 public:
  Manager(std::vector<std::string> replies, std::string state)
      : listener_(listen_on(TQ_COM_SOCKET_PATH)),
        thread_([this, replies = std::move(replies), state = std::move(state)] {
          for (const std::string& reply : replies) {
            const Socket client = accept_on(listener_);
            const bool is_start = client.read_to_end().starts_with("start");
            if (is_start && !state.empty()) write_state(state);
            client.send(reply);
          }
        }) {}
  ~Manager() {
    thread_.join();
    ::unlink(TQ_COM_SOCKET_PATH);
  }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

 private:
  Socket listener_;
  std::thread thread_;
};

// A line of the state file, with the start after another one.
std::string app_line(const std::string& state, int starts, const std::string& exit) {
  const std::string pid = state == "running" ? "99" : "0";
  return "app\tclock\t" + state + "\t" + pid + "\t1700000000\t" + std::to_string(starts) + "\t" +
         exit + "\t1.0\t-\n";
}

Ran start_with(const std::string& before, const std::string& after,
               const std::vector<std::string>& more = {}) {
  std::vector<std::string> replies = {"0\n\n"};
  // Without figures the client asks for the statuses first.
  if (before.empty()) replies.insert(replies.begin(), "");
  if (!before.empty()) write_state(before);
  const Manager manager(replies, after);
  std::vector<std::string> line = {"start", "clock"};
  line.insert(line.end(), more.begin(), more.end());
  return run_tarvio(line);
}

TEST(ClientStartOfWhatEnds, SaysHowItHasEnded) {
  const std::pair<const char*, const char*> ends[] = {
      {"not-run 13", "cannot run its start file: Permission denied"},
      {"status 3", "status 3"},
      {"signal 11", "signal 11: Segmentation fault"}};
  for (const auto& [exit, words] : ends) {
    for (const char* const state : {"ended", "restarting"}) {
      const Ran run = start_with(app_line("stopped", 1, "-"), app_line(state, 2, exit));
      EXPECT_EQ(run.status, 1);
      EXPECT_EQ(run.output, "");
      EXPECT_EQ(run.errors,
                std::string("tarvio: 'clock' was started, but it has ended: ") + words + "\n");
    }
  }
}

TEST(ClientStartOfWhatCannotRun, SaysWhatFailed) {
  write_state(app_line("stopped", 1, "-"));
  const Manager manager({"2\n\n"}, app_line("ended", 2, "no-output 2"));
  EXPECT_EQ(
      run_tarvio({"start", "clock"}).errors,
      "tarvio: cannot start 'clock': cannot open its output: No such file or directory (2)\n");
}

TEST(ClientStartOfWhatCannotRun, SaysWhatFailedInARestart) {
  write_state(app_line("running", 1, "-"));
  const Manager manager({"0\n\n", "22\n\n"}, app_line("ended", 2, "no-user 22"));
  EXPECT_EQ(run_tarvio({"restart", "clock"}).errors,
            "tarvio: cannot restart 'clock': cannot become its user: Invalid argument (22)\n");
}

TEST(ClientStartOfWhatCannotRun, DoesNotTakeTheRunBeforeForIt) {
  write_state(app_line("ended", 1, "no-output 2"));
  const Manager manager({"2\n\n"}, "");
  EXPECT_EQ(run_tarvio({"start", "clock"}).errors,
            "tarvio: cannot start 'clock': No such file or directory (2)\n");
}

TEST(ClientStartOfWhatRuns, SaysSo) {
  const Ran run = start_with(app_line("running", 1, "-"), app_line("running", 1, "-"));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "clock runs already\n");
}

TEST(ClientStartOfWhatRuns, SaysThatItIsAboutToBeRestarted) {
  const std::string state = app_line("restarting", 1, "status 1");
  EXPECT_EQ(start_with(state, state).output, "clock is about to be restarted\n");
}

TEST(ClientStartOfWhatRuns, SaysThatItWasStartedWhenItHadEnded) {
  const Ran run = start_with(app_line("ended", 1, "status 0"), app_line("running", 2, "-"));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "started clock\n");
}

TEST(ClientStartOfWhatEnds, SaysSoInJson) {
  const Ran run = start_with("", app_line("ended", 1, "not-run 2"), {"--json"});
  EXPECT_EQ(run.status, 1);
  const json object = json::parse(run.output);
  EXPECT_EQ(object["code"], 0);
  EXPECT_EQ(object["ended"], "cannot run its start file: No such file or directory");
  EXPECT_EQ(object["message"],
            "started, but it has ended: cannot run its start file: No such file or directory");
}

TEST(ClientStartOfWhatEnds, SaysSoOfARestart) {
  write_state(app_line("ended", 1, "status 1"));
  const Manager manager({"0\n\n", "0\n\n"}, app_line("ended", 2, "status 1"));
  EXPECT_EQ(run_tarvio({"restart", "clock"}).errors,
            "tarvio: 'clock' was restarted, but it has ended: status 1\n");
}

TEST(ClientStartOfWhatEnds, IsASuccessWithStatus0) {
  const Ran run = start_with("", app_line("ended", 1, "status 0"));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "started clock\n");
}

TEST(ClientStartOfWhatEnds, DoesNotTakeTheRunBeforeForIt) {
  EXPECT_EQ(start_with(app_line("ended", 1, "status 1"), "").output,
            "clock was started before; whether it still runs is not known\n");
  EXPECT_EQ(start_with(app_line("ended", 1, "status 1"), app_line("running", 2, "status 1")).output,
            "started clock\n");
}

}  // namespace
}  // namespace tarvio_test
