// tarvio start, stop, start-all and stop-all, against a manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "program.h"
#include "support/com/manager.h"
#include "support/com/replies.h"
#include "support/packages/package_listing.h"
#include "support/programs/tarvio.h"
#include "tarvio/app.h"
#include "tarvio/com.h"
#include "tarvio/status_manager.h"

// How long connecting may wait, in seconds, each time that this process limits it.
static std::vector<double> connecting_limits;

extern "C" int setsockopt(int fd, int level, int option, const void* value, socklen_t size) {
  if (level == SOL_SOCKET && option == SO_SNDTIMEO) {
    const auto* limit = static_cast<const timeval*>(value);
    connecting_limits.push_back(static_cast<double>(limit->tv_sec) +
                                static_cast<double>(limit->tv_usec) / 1e6);
  }
  return static_cast<int>(::syscall(SYS_setsockopt, fd, level, option, value, size));
}

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::Gt;
using testing::HasSubstr;
using testing::Le;

constexpr int kStateError = 11;
constexpr int kNoStatus = 12;

int succeed(tq_app_info* /*app*/) { return 0; }
int fail(tq_app_info* /*app*/) { return EACCES; }
template <int code>
int fail_once(tq_app_info* /*app*/) {
  static bool has_failed = false;
  return std::exchange(has_failed, true) ? 0 : code;
}

constexpr tq_com_word kExactWords[] = {{"start_exact", tq_start_app_exact, nullptr},
                                       {"stop_exact", tq_stop_app_exact, nullptr},
                                       {nullptr, nullptr, nullptr}};

// A manager whose starts and stops have these results, in place of processes. An older one does not
// know exact names.
ManagerProcess manager_with(int (*start)(tq_app_info*), int (*stop)(tq_app_info*),
                            const tq_com_word* words = kExactWords) {
  return ManagerProcess({{"webserver"}, {"web"}, {"clock"}}, [=] {
    linux_app_binding->start = start;
    linux_app_binding->stop = stop;
    tq_set_com_words(words);
  });
}
ManagerProcess older_manager() { return manager_with(succeed, succeed, nullptr); }

constexpr char kNoExactNames[] = "the running manager matches names by substring";

using ClientStart = WithoutPackages;

TEST_F(ClientStart, StartsAnApplicationAndStopStopsIt) {
  const ManagerProcess manager({Application{"clock", "/bin/sleep 1000"}},
                               [] { tq_set_com_words(kExactWords); });
  const Ran start = run_tarvio({"start", "clock"});
  EXPECT_EQ(start.status, 0);
  EXPECT_EQ(start.output, "started clock\n");
  EXPECT_EQ(start.errors, "");
  EXPECT_EQ(run_tarvio({"status", "clock"}).status, 0);

  const Ran stop = run_tarvio({"stop", "clock"});
  EXPECT_EQ(stop.status, 0);
  EXPECT_EQ(stop.output, "stopped clock\n");
  EXPECT_EQ(stop.errors, "");
  EXPECT_EQ(run_tarvio({"status", "clock"}).status, kNoStatus);
}

TEST_F(ClientStart, ReachesAnApplicationWhoseNameIsAPartOfAnother) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  EXPECT_EQ(run_tarvio({"start", "web"}).output, "started web\n");
  EXPECT_EQ(run_tarvio({"status", "web"}).status, 0);
  EXPECT_EQ(run_tarvio({"status", "webserver"}).status, kNoStatus);
  EXPECT_EQ(run_tarvio({"stop", "web"}).output, "stopped web\n");
  EXPECT_EQ(run_tarvio({"status", "web"}).status, kNoStatus);
}

TEST_F(ClientStart, NeedsTheWholeName) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  for (const char* command : {"start", "stop"}) {
    const Ran run = run_tarvio({command, "webs"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("'webs': no such application (22)"));
  }
  EXPECT_EQ(run_tarvio({"status"}).errors, "tarvio: no statuses\n");
}

TEST_F(ClientStart, TakesAPartOfTheNameWithMatchAndNamesWhatItCameTo) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  add_package("web");
  add_package("webserver");  // comes first in the order of the manager
  EXPECT_EQ(run_tarvio({"start", "we", "--match"}).output, "started webserver\n");
  EXPECT_EQ(run_tarvio({"status", "webserver"}).status, 0);
  const Ran stop = run_tarvio({"stop", "--match", "web", "--json"});
  EXPECT_EQ(json::parse(stop.output)["name"], "webserver");
  EXPECT_EQ(run_tarvio({"status", "webserver"}).status, kNoStatus);
  EXPECT_THAT(run_tarvio({"start", "radio", "--match"}).errors, HasSubstr("no such application"));
}

TEST_F(ClientStart, SaysThatItWasStartedBefore) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  EXPECT_EQ(run_tarvio({"start", "clock"}).output, "started clock\n");
  const Ran again = run_tarvio({"start", "clock"});
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.output, "clock was started before; whether it still runs is not known\n");
  EXPECT_EQ(again.errors, "");
  const json object = json::parse(run_tarvio({"start", "clock", "--json"}).output);
  EXPECT_EQ(object["message"], "was started before; whether it still runs is not known");
  EXPECT_EQ(object["was_started"], true);
  EXPECT_EQ(object["code"], 0);
}

struct Beginning {
  int32_t state;
  const char* detail;
};

// What the system log or a failed start has left does not make an application started.
TEST_F(ClientStart, StartsAnApplicationThatHasAStatusWithoutAStart) {
  for (const Beginning& before : {Beginning{TQ_STATE_ERROR, "start app failed."},
                                  {TQ_STATE_ERROR, "disk full"},
                                  {TQ_STATE_NORMAL, "disk cleaned"}}) {
    const ManagerProcess manager({{"clock"}}, [&] {
      EXPECT_EQ(tq_set_status2(tq_add_tq_status(before.state, 0, "clock", before.detail), 1), 0);
      linux_app_binding->start = succeed;
      tq_set_com_words(kExactWords);
    });
    EXPECT_EQ(run_tarvio({"start", "clock"}).output, "started clock\n") << before.detail;
  }
}

// The log has changed the status since the start.
TEST_F(ClientStart, SaysThatItWasStartedBeforeInAnyState) {
  const Replies manager({"clock\n1\nlow\n", "0\n\n", "clock\n1\nlow\n"});
  EXPECT_EQ(run_tarvio({"start", "clock"}).output,
            "clock was started before; whether it still runs is not known\n");
}

TEST_F(ClientStart, OfAnOlderManagerIsRefusedUnlessTheNameComesFirst) {
  const ManagerProcess manager = older_manager();
  add_package("web");
  add_package("webserver");
  for (const char* command : {"start", "stop"}) {
    const Ran run = run_tarvio({command, "web"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "tarvio: cannot " + std::string(command) + " 'web': " + kNoExactNames +
                              ", and may find 'webserver' first; use --match to accept that, or "
                              "update tarviod\n");
    EXPECT_THAT(run_tarvio({command, "clock"}).errors,
                HasSubstr("and 'clock' is not an installed application; use --match"));
  }
  EXPECT_EQ(run_tarvio({"status"}).errors, "tarvio: no statuses\n");
}

TEST_F(ClientStart, OfAnOlderManagerSaysWhatIsNotCertain) {
  const ManagerProcess manager = older_manager();
  add_package("web");
  add_package("webserver");
  const Ran start = run_tarvio({"start", "webserver"});
  EXPECT_EQ(start.status, 0);
  EXPECT_EQ(start.output, "started webserver\n");
  EXPECT_EQ(start.errors, std::string("tarvio: cannot confirm that 'webserver' was started: ") +
                              kNoExactNames + " and may know other applications; update tarviod\n");
  const json stop = json::parse(run_tarvio({"stop", "web", "--match", "--json"}).output);
  EXPECT_EQ(stop["name"], "webserver");
  EXPECT_EQ(stop["exact"], false);
  EXPECT_EQ(run_tarvio({"status", "webserver"}).status, kNoStatus);
}

// Removed since the manager started, and still in its list.
TEST_F(ClientStart, OfAnOlderManagerIsRefusedWhenItKnowsMoreThanIsInstalled) {
  const ManagerProcess manager = older_manager();
  add_package("web");
  ASSERT_EQ(run_tarvio({"start", "webserver", "--match"}).status, 0);
  const Ran run = run_tarvio({"stop", "web"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("may find 'webserver' first"));
  EXPECT_EQ(run_tarvio({"status", "webserver"}).status, 0);
}

TEST_F(ClientStart, SaysThatThereIsNoSuchApplication) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  for (const char* command : {"start", "stop"}) {
    const Ran run = run_tarvio({command, "radio"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "tarvio: cannot " + std::string(command) +
                              " 'radio': no such application (22); see 'tarvio list --category "
                              "application'\n");
  }
}

TEST_F(ClientStart, SaysWhyItFailed) {
  const ManagerProcess manager = manager_with(fail, fail);
  const Ran run = run_tarvio({"start", "clock"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: cannot start 'clock': Permission denied (13)\n");
  EXPECT_EQ(run_tarvio({"status", "clock"}).status, kStateError);
}

TEST_F(ClientStart, SaysThatTheSettingsHaveAMistake) {
  constexpr char kWords[] = "its settings have a mistake; see 'tarviod --check-config'";
  const ManagerProcess manager = manager_with(fail_once<ECANCELED>, succeed);
  const Ran run = run_tarvio({"start", "clock", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: cannot start 'clock': " + std::string(kWords) + " (125)\n");
  EXPECT_EQ(json::parse(run.output)["message"], kWords);
}

TEST_F(ClientStart, AllSaysThatSettingsHaveAMistake) {
  const ManagerProcess manager = manager_with(fail_once<ECANCELED>, succeed);
  EXPECT_EQ(run_tarvio({"start-all"}).errors,
            "tarvio: start-all: an application failed to start: its settings have a mistake; see "
            "'tarviod --check-config' (125)\n");
}

TEST(ClientStop, SaysWhyItFailed) {
  const ManagerProcess manager = manager_with(succeed, fail);
  ASSERT_EQ(run_tarvio({"start", "clock"}).status, 0);
  const Ran run = run_tarvio({"stop", "clock"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: cannot stop 'clock': Permission denied (13)\n");
}

TEST(ClientStartAll, StartsAllAndStopAllStopsThem) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  const Ran start = run_tarvio({"start-all"});
  EXPECT_EQ(start.status, 0);
  EXPECT_EQ(start.output, "started all applications\n");
  EXPECT_EQ(start.errors, "");
  EXPECT_THAT(run_tarvio({"status"}).output, HasSubstr("webserver  normal  started app\n"));

  const Ran stop = run_tarvio({"stop-all"});
  EXPECT_EQ(stop.status, 0);
  EXPECT_EQ(stop.output, "stopped all applications\n");
  EXPECT_EQ(run_tarvio({"status"}).output, "");
}

// The lookup of the protocol's start_all and stop_all finds webserver twice.
TEST_F(ClientStart, AllIncludesNamesThatAreAPartOfAnother) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  add_package("web");
  add_package("webserver");
  add_package("installed-since", "Application");
  add_package("installed-since-2", "Application");
  EXPECT_EQ(run_tarvio({"start-all"}).output, "started all applications\n");
  EXPECT_EQ(run_tarvio({"status", "web"}).status, 0);
  EXPECT_EQ(run_tarvio({"stop-all"}).output, "stopped all applications\n");
  EXPECT_EQ(run_tarvio({"status"}).errors, "tarvio: no statuses\n");
}

TEST_F(ClientStart, AllNamesWhatAnOlderManagerDoesNotReach) {
  const ManagerProcess manager = older_manager();
  add_package("web");
  add_package("webserver");
  const Ran run = run_tarvio({"start-all"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, std::string("tarvio: start-all: 'web' was not started: ") + kNoExactNames +
                            "; update tarviod\n");
}

TEST_F(ClientStart, AllReportsAFailureOfSuchAName) {
  const ManagerProcess manager = manager_with(
      [](tq_app_info* app) { return std::string(app->package->name) == "web" ? ENOEXEC : 0; },
      succeed);
  add_package("web");
  add_package("webserver");
  EXPECT_EQ(run_tarvio({"start-all"}).errors,
            "tarvio: start-all: an application failed to start: Exec format error (8)\n");
}

std::string statuses_of(int count) {
  std::string statuses;
  for (int at = 0; at < count; ++at) statuses += "app" + std::to_string(at) + "\n0\n\n";
  return statuses;
}

std::vector<double> limits_of(const char* command, int applications,
                              const std::vector<std::string>& more = {}) {
  connecting_limits.clear();
  std::vector<std::string> replies = {"0\n\n"};
  if (more.empty()) replies.insert(replies.begin(), statuses_of(applications));
  const Replies manager(replies);
  std::vector<const char*> words = {"tarvio", command};
  for (const std::string& word : more) words.push_back(word.c_str());
  testing::internal::CaptureStdout();
  EXPECT_EQ(client::run_program(static_cast<int>(words.size()), words.data()), 0);
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("all applications"));
  return connecting_limits;
}

TEST_F(ClientStart, AllMayTakeSixteenSecondsMoreForEachApplication) {
  for (const char* command : {"start-all", "stop-all"}) {
    EXPECT_THAT(limits_of(command, 0), ElementsAre(Le(30), Le(30)));
    EXPECT_THAT(limits_of(command, 200), ElementsAre(Le(30), AllOf(Gt(3200), Le(3230))));
  }
  for (const char* name : {"a", "b", "c"}) add_package(name);
  EXPECT_THAT(limits_of("start-all", 2), ElementsAre(Le(30), AllOf(Gt(70), Le(78))));
}

TEST_F(ClientStart, AllTakesAGivenTimeAsItIs) {
  EXPECT_THAT(limits_of("stop-all", 0, {"--timeout", "500"}), ElementsAre(AllOf(Gt(400), Le(500))));
}

TEST(ClientStartAll, ReportsThatAnAttemptFailed) {
  const ManagerProcess manager = manager_with(fail_once<ENOEXEC>, fail_once<ENOEXEC>);
  const Ran run = run_tarvio({"start-all"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors,
            "tarvio: start-all: an application failed to start: Exec format error (8)\n");
}

TEST(ClientStopAll, ReportsThatAnAttemptFailed) {
  const ManagerProcess manager = manager_with(succeed, fail_once<ENOEXEC>);
  ASSERT_EQ(run_tarvio({"start-all"}).status, 0);
  const Ran run = run_tarvio({"stop-all"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: stop-all: an application failed to stop: Exec format error (8)\n");
}

TEST(ClientResult, IsJsonForScripts) {
  const ManagerProcess manager = manager_with(succeed, fail_once<ENOEXEC>);
  const Ran start = run_tarvio({"start", "clock", "--json"});
  EXPECT_EQ(start.status, 0);
  EXPECT_EQ(json::parse(start.output), json({{"command", "start"},
                                             {"name", "clock"},
                                             {"exact", true},
                                             {"code", 0},
                                             {"message", "Success"},
                                             {"was_started", false}}));
  EXPECT_EQ(start.errors, "");

  const Ran stop_all = run_tarvio({"stop-all", "--json"});
  EXPECT_EQ(stop_all.status, 1);
  EXPECT_EQ(json::parse(stop_all.output),
            json({{"command", "stop-all"}, {"code", 8}, {"message", "Exec format error"}}));
  EXPECT_THAT(stop_all.errors, HasSubstr("an application failed to stop"));
}

TEST(ClientResult, OfAnUnknownNameIsJsonTooForScripts) {
  const ManagerProcess manager = manager_with(succeed, succeed);
  const Ran run = run_tarvio({"stop", "radio", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(json::parse(run.output), json({{"command", "stop"},
                                           {"name", "radio"},
                                           {"exact", true},
                                           {"code", 22},
                                           {"message", "no such application"}}));
  EXPECT_THAT(run.errors, HasSubstr("no such application"));
}

}  // namespace
}  // namespace tarvio_test
