#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/apps/app_manager.h"
#include "support/repairs.h"
#include "tarvio/app.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST_F(AppManager, StartsAnApplication) {
  set_up({"web"});
  EXPECT_EQ(tq_start_app("web"), 0);
  EXPECT_THAT(calls_, ElementsAre("start web"));
  EXPECT_EQ(app_->stopped, 0);
  EXPECT_THAT(all_statuses(), ElementsAre("web 0 started app"));
  EXPECT_THAT(
      logged(),
      ElementsAre("info: Starting Application web", "debug: Checking application web(3) <-> web(3)",
                  "warning: get application binding.", "warning: get application binding.",
                  "debug: Application start success.web"));
}

TEST_F(AppManager, DoesNotStartAStartedApplicationAgain) {
  set_up({"web"});
  tq_start_app("web");
  tq_set_application_status_error("web", "trouble");
  calls_.clear();
  log_.clear();
  EXPECT_EQ(tq_start_app("web"), 0);
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_THAT(all_statuses(), ElementsAre("web 2 trouble"));
  EXPECT_THAT(logged(), ElementsAre("info: Starting Application web",
                                    "debug: Checking application web(3) <-> web(3)"));
}

TEST_F(AppManager, StartsAgainAfterAFailedStart) {
  set_up({"web"});
  answers_ = {EMFILE};
  EXPECT_EQ(tq_start_app("web"), EMFILE);
  EXPECT_EQ(app_->stopped, 1);
  EXPECT_THAT(all_statuses(), ElementsAre("web 2 start app failed."));
  EXPECT_THAT(
      logged(),
      ElementsAre("info: Starting Application web", "debug: Checking application web(3) <-> web(3)",
                  "warning: get application binding.", "warning: get application binding.",
                  "warning: Application start failedweb"));
  EXPECT_EQ(tq_start_app("web"), 0);
  EXPECT_THAT(calls_, ElementsAre("start web", "start web"));
  EXPECT_THAT(all_statuses(), ElementsAre("web 0 started app"));
}

TEST_F(AppManager, LogsTheBindingBeforeAndAfterTheCall) {
  set_up({"web"});
  static size_t before_call;
  static const LogCapture* log;
  log = &log_;
  linux_app_binding->start = [](tq_app_info*) {
    before_call = log->messages(TQ_LOG_WARNING).size();
    return 0;
  };
  tq_start_app("web");
  EXPECT_EQ(before_call, 1U);
  EXPECT_EQ(log_.messages(TQ_LOG_WARNING).size(), 2U);
}

TEST_F(AppManager, StopsAnApplication) {
  set_up({"web"});
  tq_start_app("web");
  calls_.clear();
  log_.clear();
  EXPECT_EQ(tq_stop_app("web"), 0);
  EXPECT_THAT(calls_, ElementsAre("stop web"));
  EXPECT_EQ(app_->stopped, 1);
  EXPECT_THAT(all_statuses(), IsEmpty());
  EXPECT_THAT(logged(), ElementsAre("info: Stopping Application web",
                                    "debug: Checking application web(3) <-> web(3)",
                                    "debug: Application stop success web"));
}

TEST_F(AppManager, StopsAStoppedApplicationWithoutTheBinding) {
  set_up({"web"});
  tq_set_application_status_error("web", "trouble");
  EXPECT_EQ(tq_stop_app("web"), 0);
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_THAT(all_statuses(), IsEmpty());
  EXPECT_THAT(logged(), ElementsAre("info: Stopping Application web",
                                    "debug: Checking application web(3) <-> web(3)",
                                    "debug: Application stop success web"));
}

TEST_F(AppManager, KeepsAnApplicationStartedThatDoesNotStop) {
  set_up({"web"});
  tq_start_app("web");
  calls_.clear();
  log_.clear();
  answers_ = {EINPROGRESS};
  EXPECT_EQ(tq_stop_app("web"), EINPROGRESS);
  EXPECT_EQ(app_->stopped, 0);
  EXPECT_THAT(all_statuses(), ElementsAre("web 2 Stop App Failed"));
  EXPECT_THAT(logged(), ElementsAre("info: Stopping Application web",
                                    "debug: Checking application web(3) <-> web(3)",
                                    "warning: Application stop failedweb"));
  EXPECT_EQ(tq_stop_app("web"), 0);
  EXPECT_THAT(calls_, ElementsAre("stop web", "stop web"));
  EXPECT_THAT(all_statuses(), IsEmpty());
}

TEST_F(AppManager, StartsOnlyFromExactly1AndStopsOnlyFrom0) {
  set_up({"web"});
  tq_start_app("web");
  calls_.clear();
  app_->stopped = 2;
  EXPECT_EQ(tq_start_app("web"), 0);
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_EQ(tq_stop_app("web"), 0);
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_EQ(app_->stopped, 1);
}

TEST_F(AppManager, DoesNotKnowAnUnknownName) {
  set_up({"web"});
  EXPECT_EQ(tq_start_app("clock"), EINVAL);
  EXPECT_EQ(tq_stop_app("Web"), EINVAL);
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_THAT(all_statuses(), IsEmpty());
  EXPECT_THAT(logged(),
              ElementsAre("info: Starting Application clock",
                          "debug: Checking application web(3) <-> clock(5)",
                          "warning: No such application clock", "info: Stopping Application Web",
                          "debug: Checking application web(3) <-> Web(3)",
                          "warning: No such application Web"));
}

TEST_F(AppManager, DoesNotKnowANullName) {
  set_up({"web"});
  EXPECT_EQ(tq_start_app(nullptr), EINVAL);
  EXPECT_EQ(tq_stop_app(nullptr), EINVAL);
  EXPECT_THAT(logged(),
              ElementsAre("info: Starting Application ", "warning: No such application ",
                          "info: Stopping Application ", "warning: No such application "));
}

TEST_F(AppManager, KnowsNoApplicationBeforeItIsSetUp) {
  EXPECT_EQ(tq_start_app("web"), EINVAL);
  EXPECT_EQ(tq_stop_app("web"), EINVAL);
}

TEST_F(AppManager, FindsTheFirstApplicationWhoseNameHoldsTheText) {
  set_up({"web", "webserver"});
  tq_start_app("web");
  tq_start_app("server");
  EXPECT_THAT(calls_, ElementsAre("start web", "start webserver"));
  EXPECT_THAT(all_statuses(), ElementsAre("web 0 started app", "webserver 0 started app"));
}

TEST_F(AppManager, FindsALongerNameThatComesFirst) {
  set_up({"webserver", "web"});
  tq_start_app("web");
  EXPECT_EQ(tq_stop_app("web"), 0);
  EXPECT_THAT(calls_, ElementsAre("start webserver", "stop webserver"));
}

TEST_F(AppManager, FindsTheFirstApplicationOfAllForAnEmptyName) {
  set_up({"web", "clock"});
  tq_start_app("");
  EXPECT_THAT(calls_, ElementsAre("start web"));
}

TEST_F(AppManager, FindsExactlyTheNameWhateverComesFirst) {
  set_up({"webserver", "web"});
  EXPECT_EQ(tq_start_app_exact("web"), 0);
  EXPECT_THAT(all_statuses(), ElementsAre("web 0 started app"));
  EXPECT_EQ(tq_stop_app_exact("web"), 0);
  EXPECT_THAT(calls_, ElementsAre("start web", "stop web"));
  EXPECT_THAT(all_statuses(), IsEmpty());
}

TEST_F(AppManager, DoesNotKnowAPartOfANameExactly) {
  set_up({"webserver"});
  for (const char* name : {"web", "", "webserver2", "Webserver"}) {
    EXPECT_EQ(tq_start_app_exact(name), EINVAL) << name;
    EXPECT_EQ(tq_stop_app_exact(name), EINVAL) << name;
  }
  EXPECT_EQ(tq_start_app_exact(nullptr), EINVAL);
  EXPECT_EQ(tq_stop_app_exact(nullptr), EINVAL);
  EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(AppManager, ReportsTheResultOfAnExactNameToo) {
  set_up({"web"});
  answers_ = {EMFILE, 0, EINPROGRESS};
  EXPECT_EQ(tq_start_app_exact("web"), EMFILE);
  EXPECT_THAT(all_statuses(), ElementsAre("web 2 start app failed."));
  EXPECT_EQ(tq_start_app_exact("web"), 0);
  EXPECT_EQ(tq_start_app_exact("web"), 0);
  EXPECT_EQ(tq_stop_app_exact("web"), EINPROGRESS);
  EXPECT_THAT(calls_, ElementsAre("start web", "start web", "stop web"));
  EXPECT_THAT(logged(), Contains("warning: Application stop failedweb"));
}

TEST_F(AppManager, KeepsTheStatusUnderTheFullName) {
  set_up({"clock", "webserver"});
  answers_ = {EIO};
  tq_start_app("web");
  EXPECT_THAT(all_statuses(), ElementsAre("webserver 2 start app failed."));
  tq_start_app("web");
  EXPECT_THAT(all_statuses(), ElementsAre("webserver 0 started app"));
  answers_ = {EIO};
  tq_stop_app("web");
  EXPECT_THAT(all_statuses(), ElementsAre("webserver 2 Stop App Failed"));
  tq_stop_app("web");
  EXPECT_THAT(all_statuses(), IsEmpty());
}

TEST_F(AppManager, LogsEveryApplicationThatItLooksAt) {
  set_up({"alpha", "beta", "gamma"});
  tq_stop_app("bet");
  EXPECT_THAT(logged(), ElementsAre("info: Stopping Application bet",
                                    "debug: Checking application alpha(5) <-> bet(3)",
                                    "debug: Checking application beta(4) <-> bet(3)",
                                    "debug: Application stop success beta"));
}

TEST_F(AppManager, StartsAllInOrder) {
  set_up({"gamma", "beta", "alpha"});
  EXPECT_EQ(tq_start_all_app(), 0);
  EXPECT_THAT(calls_, ElementsAre("start gamma", "start beta", "start alpha"));
  EXPECT_EQ(logged().front(), "debug: starting 3 apps");
}

TEST_F(AppManager, StopsAllInOrderWithoutAMessageOfItsOwn) {
  set_up({"beta", "alpha"});
  tq_start_all_app();
  calls_.clear();
  log_.clear();
  EXPECT_EQ(tq_stop_all_app(), 0);
  EXPECT_THAT(calls_, ElementsAre("stop beta", "stop alpha"));
  EXPECT_THAT(all_statuses(), IsEmpty());
  EXPECT_EQ(logged().front(), "info: Stopping Application beta");
}

TEST_F(AppManager, StartsAndStopsAllOfNone) {
  set_up({});
  EXPECT_EQ(tq_start_all_app(), 0);
  EXPECT_EQ(tq_stop_all_app(), 0);
  EXPECT_THAT(logged(), ElementsAre("debug: starting 0 apps"));
}

TEST_F(AppManager, StartsAndStopsAllOfNoneBeforeItIsSetUp) {
  EXPECT_EQ(tq_start_all_app(), 0);
  EXPECT_EQ(tq_stop_all_app(), 0);
  EXPECT_THAT(logged(), ElementsAre("debug: starting 0 apps"));
}

TEST_F(AppManager, TriesEachStartUntilItSucceedsAndReturnsTheLastFailure) {
  set_up({"beta", "alpha"});
  answers_ = {5, 7, 0, 9, 11, 0};
  EXPECT_EQ(tq_start_all_app(), 11);
  EXPECT_THAT(calls_, ElementsAre("start beta", "start beta", "start beta", "start alpha",
                                  "start alpha", "start alpha"));
  EXPECT_THAT(all_statuses(), ElementsAre("beta 0 started app", "alpha 0 started app"));
}

TEST_F(AppManager, KeepsAFailureOfAnEarlierApplicationInTheResult) {
  set_up({"beta", "alpha"});
  answers_ = {5, 0, 0};
  EXPECT_EQ(tq_start_all_app(), 5);
}

TEST_F(AppManager, TriesEachStopUntilItSucceedsAndReturnsTheLastFailure) {
  set_up({"beta", "alpha"});
  tq_start_all_app();
  calls_.clear();
  answers_ = {5, 7, 0, 0};
  EXPECT_EQ(tq_stop_all_app(), 7);
  EXPECT_THAT(calls_, ElementsAre("stop beta", "stop beta", "stop beta", "stop alpha"));
  EXPECT_THAT(all_statuses(), IsEmpty());
}

TEST_F(AppManager, GivesAFailingStartThreeTriesOnceRetriesAreRepaired) {
  const Repairs repairs(TQ_REPAIR_RETRIES);
  set_up({"beta", "alpha"});
  answers_ = {5, 6, 7};
  EXPECT_EQ(tq_start_all_app(), 7);
  EXPECT_THAT(calls_, ElementsAre("start beta", "start beta", "start beta", "start alpha"));
  EXPECT_THAT(all_statuses(), ElementsAre("beta 2 start app failed.", "alpha 0 started app"));
  EXPECT_THAT(logged(),
              Contains("warning: Application beta failed 3 times: going on without it, last code 7")
                  .Times(1));
}

TEST_F(AppManager, CountsTheTriesOfEachApplicationOnceRetriesAreRepaired) {
  const Repairs repairs(TQ_REPAIR_RETRIES);
  set_up({"beta", "alpha"});
  answers_ = {5, 7, 0, 9, 11, 0};
  EXPECT_EQ(tq_start_all_app(), 11);
  EXPECT_THAT(all_statuses(), ElementsAre("beta 0 started app", "alpha 0 started app"));
  EXPECT_THAT(logged(), Not(Contains(HasSubstr("going on without it"))));
}

TEST_F(AppManager, GivesAFailingStopThreeTriesOnceRetriesAreRepaired) {
  const Repairs repairs(TQ_REPAIR_RETRIES);
  set_up({"beta", "alpha"});
  tq_start_all_app();
  calls_.clear();
  answers_ = {0, 5, 6, 7};
  EXPECT_EQ(tq_stop_all_app(), 7);
  EXPECT_THAT(calls_, ElementsAre("stop beta", "stop alpha", "stop alpha", "stop alpha"));
  EXPECT_EQ(app_->stopped, 0);
  EXPECT_THAT(all_statuses(), ElementsAre("alpha 2 Stop App Failed"));
  EXPECT_THAT(
      logged(),
      Contains("warning: Application alpha failed 3 times: going on without it, last code 7"));
}

TEST_F(AppManager, HandlesTheEarlierOfTwoNestedNamesTwice) {
  set_up({"webserver", "web", "clock"});
  EXPECT_EQ(tq_start_all_app(), 0);
  EXPECT_THAT(calls_, ElementsAre("start webserver", "start clock"));
  EXPECT_THAT(log_.messages(TQ_LOG_INFO),
              ElementsAre("Starting Application webserver", "Starting Application web",
                          "Starting Application clock"));
  calls_.clear();
  log_.clear();
  EXPECT_EQ(tq_stop_all_app(), 0);
  EXPECT_THAT(calls_, ElementsAre("stop webserver", "stop clock"));
  EXPECT_THAT(log_.messages(TQ_LOG_INFO),
              ElementsAre("Stopping Application webserver", "Stopping Application web",
                          "Stopping Application clock"));
}

TEST_F(AppManager, HandlesBothOfTwoNestedNamesWhenTheShorterComesFirst) {
  set_up({"web", "webserver"});
  EXPECT_EQ(tq_start_all_app(), 0);
  EXPECT_EQ(tq_stop_all_app(), 0);
  EXPECT_THAT(calls_, ElementsAre("start web", "start webserver", "stop web", "stop webserver"));
}

}  // namespace
}  // namespace tarvio_test
