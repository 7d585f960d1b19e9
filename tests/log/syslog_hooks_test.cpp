// Hooks of the syslog binding: which there are, and which one a line matches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/live_allocations.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/log_monitor.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "log/tq_syslog_binding";

char* allocated(const char* text) { return ::strdup(text); }

class SyslogHooks : public testing::Test {
 protected:
  SyslogHooks() { tq_syslog_setup_log_manager(); }
  ~SyslogHooks() override { tq_list_free(syslog_hook, 1); }

  static std::vector<std::string> hooks() {
    std::vector<std::string> texts;
    for (const tq_list_node* node = syslog_hook->head; node != nullptr; node = node->next)
      texts.emplace_back(static_cast<const char*>(node->element));
    return texts;
  }

  static void set(const std::vector<const char*>& texts) {
    for (const char* text : texts) ASSERT_EQ(tq_syslog_set_log_hook(allocated(text)), 0);
  }

  // The hook that a line of the program matches.
  static std::string hook_of(std::string ident) {
    const tq_syslog_line line = {0, ident.data(), nullptr};
    const char* hook = tq_check_log_hook(&line);
    return hook == nullptr ? "none" : hook;
  }
};

TEST_F(SyslogHooks, AreKeptInTheOrderOfTheirSetting) {
  set({"clock", "radio", "app"});
  EXPECT_THAT(hooks(), ElementsAre("clock", "radio", "app"));
}

TEST_F(SyslogHooks, AreTheCallersOwnStrings) {
  char* hook = allocated("clock");
  EXPECT_EQ(tq_syslog_set_log_hook(hook), 0);
  EXPECT_EQ(tq_list_first(syslog_hook), hook);
}

TEST_F(SyslogHooks, AreSetOnce) {
  char hook[] = "clock";
  set({"clock", "clocks"});
  EXPECT_EQ(tq_syslog_set_log_hook(hook), 0);
  EXPECT_THAT(hooks(), ElementsAre("clock", "clocks"));
}

TEST_F(SyslogHooks, CostAFurtherCopyOfTheirTextForGood) {
  char* hook = allocated("clock");
  char equal[] = "clock";
  const LiveAllocations live;
  tq_syslog_set_log_hook(hook);
  EXPECT_EQ(live.count(), 2);  // the list's node and the copy
  tq_syslog_set_log_hook(equal);
  EXPECT_EQ(live.count(), 2);
}

TEST_F(SyslogHooks, CannotBeNull) {
  EXPECT_EQ(tq_syslog_set_log_hook(nullptr), EINVAL);
  EXPECT_EQ(tq_syslog_remove_log_hook(nullptr), EINVAL);
  EXPECT_THAT(hooks(), IsEmpty());
}

TEST_F(SyslogHooks, AreNotSetWhenMemoryRunsOut) {
  char* hook = allocated("clock");
  {
    const FailAlloc fail(1);
    EXPECT_EQ(tq_syslog_set_log_hook(hook), ENOMEM);
  }
  EXPECT_THAT(hooks(), IsEmpty());
  EXPECT_EQ(tq_syslog_set_log_hook(hook), 0);
}

TEST_F(SyslogHooks, AreRemovedAndFreed) {
  set({"clock", "radio", "app"});
  {
    const LiveAllocations live;
    EXPECT_EQ(tq_syslog_remove_log_hook("radio"), 0);
    EXPECT_EQ(live.count(), -2);  // the list's node and the string
  }
  EXPECT_THAT(hooks(), ElementsAre("clock", "app"));
  EXPECT_EQ(tq_syslog_remove_log_hook("clock"), 0);
  EXPECT_THAT(hooks(), ElementsAre("app"));
}

TEST_F(SyslogHooks, MayBeRemovedByTheirOwnString) {
  char* hook = allocated("clock");
  tq_syslog_set_log_hook(hook);
  EXPECT_EQ(tq_syslog_remove_log_hook(hook), 0);
  EXPECT_THAT(hooks(), IsEmpty());
}

TEST_F(SyslogHooks, LoseTheLastOneToAnUnknownNameWithoutItsStringBeingFreed) {
  char* last = allocated("app");
  set({"clock", "radio"});
  tq_syslog_set_log_hook(last);
  {
    const LiveAllocations live;
    EXPECT_EQ(tq_syslog_remove_log_hook("television"), 0);
    EXPECT_EQ(live.count(), -1);  // the list's node
  }
  EXPECT_THAT(hooks(), ElementsAre("clock", "radio"));
  EXPECT_STREQ(last, "app");
  std::free(last);
}

TEST_F(SyslogHooks, StayEmptyWhenOneIsRemoved) {
  EXPECT_EQ(tq_syslog_remove_log_hook("clock"), 0);
  EXPECT_THAT(hooks(), IsEmpty());
}

TEST(SyslogHooksBeforeSetUp, AreNotThere) {
  char hook[] = "clock";
  const tq_syslog_line line = {0, hook, nullptr};
  EXPECT_EQ(tq_syslog_set_log_hook(hook), EINVAL);
  EXPECT_EQ(tq_syslog_remove_log_hook(hook), EINVAL);
  EXPECT_EQ(tq_check_log_hook(&line), nullptr);
}

TEST_F(SyslogHooks, MatchAPartOfTheIdent) {
  set({"app"});
  EXPECT_EQ(hook_of("myapp[7]"), "app");
  EXPECT_EQ(hook_of("app"), "app");
  EXPECT_EQ(hook_of("ap"), "none");
  EXPECT_EQ(hook_of("App"), "none");
  EXPECT_EQ(hook_of(""), "none");
}

TEST_F(SyslogHooks, LetTheLastOneThatMatchesWin) {
  set({"app", "my", "radio"});
  EXPECT_EQ(hook_of("myapp"), "my");
  set({"myapp"});
  EXPECT_EQ(hook_of("myapp"), "myapp");
  EXPECT_EQ(hook_of("app"), "app");
}

TEST_F(SyslogHooks, MatchEverythingWhenTheyAreEmpty) {
  set({""});
  EXPECT_EQ(hook_of("clock"), "");
  EXPECT_EQ(hook_of(""), "");
}

TEST_F(SyslogHooks, MatchNoNullLine) {
  set({""});
  const tq_syslog_line line = {};
  EXPECT_EQ(tq_check_log_hook(nullptr), nullptr);
  EXPECT_EQ(tq_check_log_hook(&line), nullptr);
}

TEST_F(SyslogHooks, AreReturnedThemselves) {
  char* hook = allocated("clock");
  tq_syslog_set_log_hook(hook);
  char ident[] = "clock[2]";
  const tq_syslog_line line = {0, ident, nullptr};
  EXPECT_EQ(tq_check_log_hook(&line), hook);
}

TEST_F(SyslogHooks, AreLoggedWhenTheyMatch) {
  set({"app", "radio", "my"});
  const StdoutCapture out;
  const LogCapture log(TQ_LOG_DEBUG);
  hook_of("myapp[7]");
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: now checking log hook...myapp[7]\n",
                          "debug: Syslog matched app ident.", "debug: Syslog matched my ident."));
  tq_check_log_hook(nullptr);
  EXPECT_EQ(unit_messages(log, kUnit).size(), 3U);
}

}  // namespace
}  // namespace tarvio_test
