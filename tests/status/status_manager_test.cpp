#include "tarvio/status_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "support/status_records.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "status/tq_status_manager";
constexpr char kUpdating[] = "updating status\n";
constexpr char kErrorKept[] = "nothing to do with status\n";

// A record that borrows its strings.
tq_status record_of(const Status& status) {
  return {.type = status.type,
          .id = status.id,
          .state = status.state,
          .detail = const_cast<char*>(status.detail.c_str()),
          .name = const_cast<char*>(status.name.c_str()),
          .next = nullptr};
}

class Manager : public testing::Test {
 protected:
  Manager() { EXPECT_EQ(tq_setup_status_manager(), 0); }
  ~Manager() override {
    tq_status_list_free(sl);
    sl = nullptr;
  }

  static void set(const Status& status, int32_t force = 1) {
    const tq_status record = record_of(status);
    EXPECT_EQ(tq_set_status2(&record, force), 0);
  }
  static void set_without_detail(const Status& status) {
    tq_status record = record_of(status);
    record.detail = nullptr;
    EXPECT_EQ(tq_set_status2(&record, 1), 0);
  }
  static std::vector<Status> statuses() { return statuses_of(sl); }
  std::vector<std::string> logged() const { return unit_messages(log_, kUnit); }

  // Above debug only: debug messages also go to standard output, which the tests check.
  LogCapture log_{TQ_LOG_INFO};
};

TEST_F(Manager, StartsWithAnEmptyList) {
  ASSERT_NE(sl, nullptr);
  EXPECT_EQ(tq_list_size(sl), 0);
}

TEST_F(Manager, StartsEmptyWhenItIsSetUpAgain) {
  set({"a"});
  tq_list_t* before = sl;
  EXPECT_EQ(tq_setup_status_manager(), 0);
  EXPECT_NE(sl, before);
  EXPECT_THAT(statuses(), IsEmpty());
  EXPECT_THAT(statuses_of(before), ElementsAre(Status{"a"}));
  tq_status_list_free(before);
}

TEST_F(Manager, AddsNewNamesInTheOrderOfTheirSetting) {
  const StdoutCapture output;
  set({"b", 2, 5, "why", 9});
  set({"a", 0, 0, "", 0}, 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"b", 2, 5, "why", 0}, Status{"a"}));
  EXPECT_EQ(output.text(), "");
}

TEST_F(Manager, LogsAnAddition) {
  const StdoutCapture output;
  tq_set_log_level(TQ_LOG_DEBUG);
  set({"clock", 2, 0, "100% of %s"});
  EXPECT_THAT(logged(), ElementsAre("debug: Adding status clock 2 100% of %s"));
  log_.clear();
  set({"clock", 0, 0, "again"});
  EXPECT_THAT(logged(), IsEmpty());
  set_without_detail({"lamp", 1});
  EXPECT_THAT(logged(), ElementsAre("debug: Adding status lamp 1 NULL"));
}

TEST_F(Manager, UpdatesInPlaceAndKeepsNameAndId) {
  for (const char* name : {"a", "b", "c"}) set({name});
  auto* stored = static_cast<tq_status*>(sl->head->next->element);
  const char* name = stored->name;
  stored->id = 7;
  const StdoutCapture output;
  set({"b", 1, 4, "new", 9}, 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"a"}, Status{"b", 1, 4, "new", 7}, Status{"c"}));
  EXPECT_EQ(sl->head->next->element, stored);
  EXPECT_EQ(stored->name, name);
  EXPECT_EQ(output.text(), kUpdating);
}

TEST_F(Manager, DistinguishesNamesByEveryByte) {
  for (const char* name : {"name", "nam", "names", "Name", ""}) set({name});
  EXPECT_EQ(tq_list_size(sl), 5);
}

TEST_F(Manager, LeavesTheErrorStateOnlyByForce) {
  struct Row {
    int32_t stored;
    int32_t force;
    bool changes;
  };
  for (const Row row :
       {Row{0, 0, true}, Row{0, 1, true}, Row{1, 0, true}, Row{1, 1, true}, Row{2, 0, false},
        Row{2, 1, true}, Row{2, 2, true}, Row{2, -1, true}, Row{3, 0, true}}) {
    for (const int32_t state : {0, 1, 2}) {
      set({"a", row.stored, 0, "old"});
      const StdoutCapture output;
      set({"a", state, 3, "new"}, row.force);
      EXPECT_THAT(statuses(), ElementsAre(row.changes ? Status{"a", state, 3, "new"}
                                                      : Status{"a", row.stored, 0, "old"}));
      EXPECT_EQ(output.text(), row.changes ? kUpdating : kErrorKept);
    }
  }
}

TEST_F(Manager, SetsApplicationsByForce) {
  const StdoutCapture output;
  EXPECT_EQ(tq_set_application_status_error("clock", "broken"), 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"clock", 2, 0, "broken"}));
  set({"clock", 0, 5, "unforced"}, 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"clock", 2, 0, "broken"}));
  EXPECT_EQ(tq_set_application_status_normal("clock", "started app"), 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"clock", 0, 0, "started app"}));
  EXPECT_EQ(output.text(), std::string(kErrorKept) + kUpdating);
}

TEST_F(Manager, GivesAnApplicationType0) {
  set({"clock", 0, 5, "other type"});
  tq_set_application_status_error("clock", "broken");
  EXPECT_THAT(statuses(), ElementsAre(Status{"clock", 2, 0, "broken"}));
}

TEST_F(Manager, KeepsTheOldDetailForANullOneInAnUpdate) {
  set({"a", 2, 0, "old"});
  set_without_detail({"a", 1, 4});
  EXPECT_THAT(statuses(), ElementsAre(Status{"a", 1, 4, "old"}));
}

TEST_F(Manager, KeepsTheOldDetailWhenTheNewOneFindsNoMemory) {
  set({"a", 2, 0, "old"});
  const FailAlloc fail(1);
  set({"a", 1, 4, "new"});
  EXPECT_TRUE(fail.happened());
  EXPECT_THAT(statuses(), ElementsAre(Status{"a", 1, 4, "old"}));
}

TEST_F(Manager, TakesARecordOfItsOwnList) {
  set({"a", 2, 3, "detail"});
  EXPECT_EQ(tq_set_status2(static_cast<tq_status*>(sl->head->element), 1), 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"a", 2, 3, "detail"}));
}

// A null detail makes the copy fail, and the null element ends every later walk.
TEST_F(Manager, HidesWhatFollowsAnAdditionWithoutADetail) {
  set({"a"});
  set_without_detail({"b"});
  set({"c"});
  EXPECT_EQ(tq_list_size(sl), 3);
  EXPECT_EQ(sl->head->next->element, nullptr);
  EXPECT_THAT(statuses(), ElementsAre(Status{"a"}));
  set({"c"});
  EXPECT_EQ(tq_list_size(sl), 4);
  tq_remove_status2("c");
  EXPECT_EQ(tq_list_size(sl), 4);
  StatusList found;
  EXPECT_EQ(tq_find_all_status2(found.receive()), 0);
  EXPECT_THAT(found.statuses(), ElementsAre(Status{"a"}));
}

TEST_F(Manager, AddsANullElementWhenACopyFindsNoMemory) {
  for (int n = 1; n <= 3; ++n) {
    const FailAlloc fail(n);
    set({"a"});
    EXPECT_EQ(tq_list_size(sl), n);
    EXPECT_EQ(tq_list_get_last(sl)->element, nullptr);
  }
}

TEST_F(Manager, AddsNothingWhenANodeFindsNoMemory) {
  const FailAlloc fail(4);
  set({"a"});
  EXPECT_TRUE(fail.happened());
  EXPECT_EQ(tq_list_size(sl), 0);
}

TEST_F(Manager, NeedsANameToSet) {
  const tq_status nameless = {};
  EXPECT_EQ(tq_set_status2(nullptr, 1), 0);
  EXPECT_EQ(tq_set_status2(&nameless, 1), 0);
  EXPECT_EQ(tq_set_application_status_normal(nullptr, "detail"), 0);
  EXPECT_EQ(tq_list_size(sl), 0);
  EXPECT_THAT(logged(), ElementsAre("warning: tq_set_status2: no name to set a status for",
                                    "warning: tq_set_status2: no name to set a status for",
                                    "warning: tq_set_status2: no name to set a status for"));
}

TEST_F(Manager, AddsWithoutLookingForTheName) {
  const StdoutCapture output;
  const Status status{"a", 2, 3, "detail", 9};
  const tq_status record = record_of(status);
  for (int n = 0; n < 2; ++n) EXPECT_EQ(tq_add_status2(&record), 0);
  EXPECT_THAT(statuses(),
              ElementsAre(Status{"a", 2, 3, "detail", 0}, Status{"a", 2, 3, "detail", 0}));
  EXPECT_EQ(output.text(), "");
}

TEST_F(Manager, AddsNothingThatCannotBeCopied) {
  const Status status{"a"};
  tq_status record = record_of(status);
  for (int n = 1; n <= 4; ++n) {  // a copy of three allocations and a node
    const FailAlloc fail(n);
    EXPECT_EQ(tq_add_status2(&record), 10101);
    EXPECT_TRUE(fail.happened());
  }
  record.detail = nullptr;
  EXPECT_EQ(tq_add_status2(&record), 10101);
  record = record_of(status);
  record.name = nullptr;
  EXPECT_EQ(tq_add_status2(&record), 10101);
  EXPECT_EQ(tq_add_status2(nullptr), EINVAL);
  EXPECT_EQ(tq_list_size(sl), 0);
}

TEST_F(Manager, RemovesTheFirstRecordOfAName) {
  const Status twice{"b", 1};
  const tq_status record = record_of(twice);
  for (const char* name : {"a", "b", "c"}) set({name});
  tq_add_status2(&record);
  EXPECT_EQ(tq_remove_status2("b"), 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"a"}, Status{"c"}, Status{"b", 1}));
  EXPECT_EQ(tq_remove_application_status("b"), 0);
  EXPECT_EQ(tq_remove_application_status("a"), 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"c"}));
  set({"d"});
  EXPECT_THAT(statuses(), ElementsAre(Status{"c"}, Status{"d"}));
}

TEST_F(Manager, RemovesNothingForAnUnknownName) {
  set({"name"});
  for (const char* name : {"nam", "names", "Name", ""}) EXPECT_EQ(tq_remove_status2(name), 0);
  EXPECT_EQ(tq_remove_status2(nullptr), 0);
  EXPECT_THAT(statuses(), ElementsAre(Status{"name"}));
}

TEST_F(Manager, ShowsAChain) {
  const StatusChain chain({{"a", 2, 3, "one", 7}, {"b", 0, 0, "two", 8}});
  show_list(chain.get());
  char expected[3][200];
  snprintf(expected[0], sizeof expected[0], "info: show_list: head=%p ",
           static_cast<void*>(chain.get()));
  snprintf(expected[1], sizeof expected[1], "info: show_list: %p:[3 7 2 one a %p] ",
           static_cast<void*>(chain.get()), static_cast<void*>(chain.get()->next));
  snprintf(expected[2], sizeof expected[2], "info: show_list: %p:[0 8 0 two b (nil)] ",
           static_cast<void*>(chain.get()->next));
  EXPECT_THAT(logged(), ElementsAre(expected[0], expected[1], expected[2]));
}

TEST_F(Manager, ShowsAList) {
  const StatusList list({{"a", 2, 3, "one", 7}});
  show_list2(list.get());
  char expected[2][200];
  snprintf(expected[0], sizeof expected[0], "info: show_list2: head=%p ",
           static_cast<void*>(list.get()));
  snprintf(expected[1], sizeof expected[1], "info: show_list2: %p:[3 7 2 one a (nil)] ",
           list.get()->head->element);
  EXPECT_THAT(logged(), ElementsAre(expected[0], expected[1]));
}

TEST_F(Manager, ShowsNothing) {
  show_list(nullptr);
  show_list2(nullptr);
  EXPECT_THAT(logged(),
              ElementsAre("info: show_list: head=(nil) ", "info: show_list2: head=(nil) "));
}

TEST(ManagerBeforeSetUp, ChangesNothingAndSaysSo) {
  const LogCapture log;
  const Status status{"a"};
  const tq_status record = record_of(status);
  EXPECT_EQ(sl, nullptr);
  EXPECT_EQ(tq_set_status2(&record, 1), 0);
  EXPECT_EQ(tq_set_application_status_normal("a", "detail"), 0);
  EXPECT_EQ(tq_set_application_status_error("a", "detail"), 0);
  EXPECT_THAT(unit_messages(log, kUnit),
              testing::Each("warning: tq_set_status2: status manager is not set up"));
  EXPECT_EQ(log.records().size(), 3U);
  EXPECT_EQ(tq_add_status2(&record), EINVAL);
  EXPECT_EQ(tq_remove_status2("a"), 0);
  EXPECT_EQ(tq_remove_application_status("a"), 0);
}

TEST(ManagerBeforeSetUp, FindsNothing) {
  StatusList found;
  EXPECT_EQ(tq_find_all_status2(found.receive()), 0);
  EXPECT_EQ(tq_list_size(found.get()), 0);
}

TEST(ManagerSetUp, Returns0WithoutMemoryToo) {
  const LogCapture log;
  {
    const FailAlloc fail(1);
    EXPECT_EQ(tq_setup_status_manager(), 0);
  }
  EXPECT_EQ(sl, nullptr);
}

}  // namespace
}  // namespace tarvio_test
