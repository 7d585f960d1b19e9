// The log manager: the binding that it works through, and the status change after a line of the
// log.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "tarvio/log.h"
#include "tarvio/log_monitor.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

constexpr char kUnit[] = "log/tq_log_manager";

TEST(LogManager, CannotDoItsWorkBeforeItIsSetUp) {
  char hook[] = "clock";
  EXPECT_EQ(tq_start_monitor(nullptr), EINVAL);
  EXPECT_EQ(tq_stop_monitor(nullptr), EINVAL);
  EXPECT_EQ(tq_set_log_hook(hook), EINVAL);
  EXPECT_EQ(tq_remove_log_hook(hook), EINVAL);
}

TEST(LogManager, MakesAnEmptyListOfHooksAtSetUp) {
  EXPECT_EQ(syslog_hook, nullptr);
  EXPECT_EQ(tq_setup_log_manager(), 0);
  ASSERT_NE(syslog_hook, nullptr);
  EXPECT_EQ(tq_list_size(syslog_hook), 0);
  tq_list_free(syslog_hook, 0);
}

TEST(LogManager, LosesTheHooksAtASecondSetUp) {
  tq_setup_log_manager();
  tq_list_t* first = syslog_hook;
  char hook[] = "clock";
  tq_set_log_hook(hook);
  EXPECT_EQ(tq_setup_log_manager(), 0);
  EXPECT_NE(syslog_hook, first);
  EXPECT_EQ(tq_list_size(syslog_hook), 0);
  tq_list_free(first, 0);
  tq_list_free(syslog_hook, 0);
}

TEST(LogManager, LeavesTheReservedPointerAlone) {
  EXPECT_EQ(tq_log_monitor, nullptr);
  tq_setup_log_manager();
  tq_start_monitor(&tq_log_monitor);
  EXPECT_EQ(tq_log_monitor, nullptr);
  tq_list_free(syslog_hook, 0);
}

TEST(SyslogBinding, IsOneFilledRecord) {
  tq_log_binding* binding = tq_get_syslog_binding();
  EXPECT_EQ(binding->setup, tq_syslog_setup_log_manager);
  EXPECT_EQ(binding->start_monitor, tq_syslog_start_monitor);
  EXPECT_EQ(binding->stop_monitor, tq_syslog_stop_monitor);
  EXPECT_EQ(binding->set_log_hook, tq_syslog_set_log_hook);
  EXPECT_EQ(binding->remove_log_hook, tq_syslog_remove_log_hook);
  *binding = {};
  EXPECT_EQ(tq_get_syslog_binding(), binding);
  EXPECT_EQ(binding->setup, tq_syslog_setup_log_manager);
}

TEST(SyslogBinding, HasNoMonitorToStartOrStop) {
  int value = 0;
  EXPECT_EQ(tq_syslog_start_monitor(&value), 0);
  EXPECT_EQ(tq_syslog_stop_monitor(&value), 0);
  EXPECT_EQ(tq_monitor_syslog(&value), &value);
  EXPECT_EQ(tq_monitor_syslog(nullptr), nullptr);
}

const void* passed = nullptr;

int take_argument(void* argument) {
  passed = argument;
  return 41;
}

int take_hook(char* hook) {
  passed = hook;
  return 42;
}

int take_text(const char* hook) {
  passed = hook;
  return 43;
}

TEST(LogManager, PassesArgumentsAndResultsOn) {
  tq_log_binding* binding = tq_get_syslog_binding();
  tq_setup_log_manager();
  char hook[] = "clock";

  binding->start_monitor = take_argument;
  EXPECT_EQ(tq_start_monitor(hook), 41);
  EXPECT_EQ(passed, hook);
  binding->stop_monitor = take_argument;
  EXPECT_EQ(tq_stop_monitor(hook + 1), 41);
  EXPECT_EQ(passed, hook + 1);
  binding->set_log_hook = take_hook;
  EXPECT_EQ(tq_set_log_hook(hook), 42);
  EXPECT_EQ(passed, hook);
  binding->remove_log_hook = take_text;
  EXPECT_EQ(tq_remove_log_hook(hook + 2), 43);
  EXPECT_EQ(passed, hook + 2);
  EXPECT_EQ(tq_list_size(syslog_hook), 0);
  tq_list_free(syslog_hook, 0);
}

class StatusByLog : public testing::Test {
 protected:
  StatusByLog() { tq_setup_status_manager(); }
  ~StatusByLog() override { tq_status_list_free(sl); }

  static const tq_status& only_status() {
    EXPECT_EQ(tq_list_size(sl), 1);
    return *static_cast<tq_status*>(tq_list_first(sl));
  }

  const StdoutCapture out_;
};

TEST_F(StatusByLog, IsThatOfAnApplication) {
  EXPECT_EQ(tq_change_status_by_log("clock", 2, " no battery"), 0);
  EXPECT_EQ(only_status().type, TQ_STATUS_TYPE_APPLICATION);
  EXPECT_STREQ(only_status().name, "clock");
  EXPECT_STREQ(only_status().detail, " no battery");
  EXPECT_EQ(only_status().state, TQ_STATE_ERROR);
}

TEST_F(StatusByLog, OwnsItsTexts) {
  std::string name = "clock";
  std::string detail = "fine";
  tq_change_status_by_log(name.c_str(), 0, detail.c_str());
  name = "radio";
  detail = "gone";
  EXPECT_STREQ(only_status().name, "clock");
  EXPECT_STREQ(only_status().detail, "fine");
}

TEST_F(StatusByLog, HasTheThreeStatesAndTakesAllElseForNormal) {
  struct Row {
    int32_t given;
    int32_t state;
  };
  for (const auto& [given, state] :
       {Row{0, 0}, Row{1, 1}, Row{-1, 0}, Row{1, 1}, Row{3, 0}, Row{7, 0}, Row{1, 1},
        Row{INT32_MIN, 0}, Row{INT32_MAX, 0}, Row{2, 2}}) {
    EXPECT_EQ(tq_change_status_by_log("clock", given, std::to_string(given).c_str()), 0);
    EXPECT_EQ(only_status().state, state) << given;
    EXPECT_EQ(only_status().detail, std::to_string(given));
  }
}

TEST_F(StatusByLog, LeavesAnErrorAlone) {
  tq_change_status_by_log("clock", 2, "no battery");
  for (const int32_t state : {0, 1, 2, 7}) {
    EXPECT_EQ(tq_change_status_by_log("clock", state, "later"), 0);
    EXPECT_EQ(only_status().state, TQ_STATE_ERROR);
    EXPECT_STREQ(only_status().detail, "no battery");
  }
  EXPECT_EQ(out_.text(),
            "nothing to do with status\nnothing to do with status\n"
            "nothing to do with status\nnothing to do with status\n");
}

TEST_F(StatusByLog, ChangesAgainAfterAForcedChange) {
  tq_change_status_by_log("clock", 2, "no battery");
  tq_set_application_status_normal("clock", "started app");
  tq_change_status_by_log("clock", 1, "battery is low");
  EXPECT_EQ(only_status().state, TQ_STATE_THIRD);
  EXPECT_STREQ(only_status().detail, "battery is low");
  EXPECT_EQ(out_.text(), "updating status\nupdating status\n");
}

TEST_F(StatusByLog, NeedsAName) {
  const LogCapture log;
  EXPECT_EQ(tq_change_status_by_log(nullptr, 2, "no battery"), 0);
  EXPECT_EQ(tq_list_size(sl), 0);
}

TEST_F(StatusByLog, IsNotLoggedWhenItSucceeds) {
  const LogCapture log(TQ_LOG_DEBUG);
  tq_change_status_by_log("clock", 0, "fine");
  for (const LogRecord& record : log.records()) EXPECT_NE(record.unit, kUnit);
}

}  // namespace
}  // namespace tarvio_test
