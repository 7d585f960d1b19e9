#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/log_capture.h"
#include "support/status_records.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/status.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "status/tq_status_manager_helper";

const Status kA{"a", 0, 5, "one", 7};
const Status kB{"b", 2, 0, "two", 8};
const Status kC{"c", 0, 0, "three", 9};
const Status kD{"d", 2, 5, "four", 10};
const std::vector<Status> kAll = {kA, kB, kC, kD};

class Search : public testing::Test {
 protected:
  std::vector<std::string> logged() const { return unit_messages(log_, kUnit); }

  LogCapture log_{TQ_LOG_DEBUG};
};

TEST_F(Search, ByStateCopiesWithIdsInOrder) {
  const StatusChain source(kAll);
  StatusChain result;
  EXPECT_EQ(tq_search_tq_status_by_state(2, source.get(), result.address()), 0);
  EXPECT_THAT(result.statuses(), ElementsAre(kB, kD));
  EXPECT_EQ(tq_search_tq_status_by_state(0, source.get(), result.address()), 0);
  EXPECT_THAT(result.statuses(), ElementsAre(kB, kD, kA, kC));
  EXPECT_EQ(source.statuses(), kAll);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Search, ByTypeCopiesWithIdsInOrder) {
  const StatusChain source(kAll);
  StatusChain result;
  EXPECT_EQ(tq_search_tq_status_by_type(5, source.get(), result.address()), 0);
  EXPECT_THAT(result.statuses(), ElementsAre(kA, kD));
}

TEST_F(Search, WithoutAMatchAddsNothing) {
  const StatusChain source(kAll);
  StatusChain result;
  EXPECT_EQ(tq_search_tq_status_by_state(1, source.get(), result.address()), 0);
  EXPECT_EQ(tq_search_tq_status_by_type(1, source.get(), result.address()), 0);
  EXPECT_EQ(tq_search_tq_status_by_state(0, nullptr, result.address()), 0);
  EXPECT_EQ(result.get(), nullptr);
}

TEST_F(Search, NeedsAPlaceForTheResult) {
  EXPECT_EQ(tq_search_tq_status_by_state(0, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tq_search_tq_status_by_type(0, nullptr, nullptr), EINVAL);
}

TEST_F(Search, WithoutMemoryKeepsTheCopiesMadeSoFar) {
  const StatusChain source(kAll);
  for (int n = 1; n <= 6; ++n) {  // two copies of three allocations
    log_.clear();
    StatusChain by_state;
    const FailAlloc fail(n);
    EXPECT_EQ(tq_search_tq_status_by_state(2, source.get(), by_state.address()), 10101);
    EXPECT_EQ(by_state.statuses(), n <= 3 ? std::vector<Status>() : std::vector{kB});
    EXPECT_THAT(logged(), ElementsAre("debug: tq_add_tq_status: malloc error ",
                                      "debug: tq_search_tq_status_by_state: malloc error "));
  }
  log_.clear();
  StatusChain by_type;
  const FailAlloc fail(4);
  EXPECT_EQ(tq_search_tq_status_by_type(5, source.get(), by_type.address()), 10101);
  EXPECT_THAT(by_type.statuses(), ElementsAre(kA));
  EXPECT_THAT(logged(), ElementsAre("debug: tq_add_tq_status: malloc error ",
                                    "debug: tq_search_tq_status_by_type: malloc error "));
}

TEST_F(Search, ByStateInAListCopiesWithIdsInOrder) {
  const StatusList source(kAll);
  const StatusList result;
  EXPECT_EQ(tq_search_tq_status_by_state2(0, source.get(), result.get()), 0);
  EXPECT_EQ(tq_search_tq_status_by_state2(2, source.get(), result.get()), 0);
  EXPECT_THAT(result.statuses(), ElementsAre(kA, kC, kB, kD));
  EXPECT_EQ(source.statuses(), kAll);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Search, ByTypeInAListCopiesWithIdsInOrder) {
  const StatusList source(kAll);
  const StatusList result;
  EXPECT_EQ(tq_search_tq_status_by_type2(0, source.get(), result.get()), 0);
  EXPECT_THAT(result.statuses(), ElementsAre(kB, kC));
}

TEST_F(Search, InAListWithoutAMatchAddsNothing) {
  const StatusList source(kAll);
  const StatusList result;
  EXPECT_EQ(tq_search_tq_status_by_type2(1, source.get(), result.get()), 0);
  EXPECT_EQ(tq_search_tq_status_by_state2(1, source.get(), result.get()), 0);
  EXPECT_EQ(tq_list_size(result.get()), 0);
}

TEST_F(Search, InAListStopsAtANullElement) {
  const StatusList source({kA});
  tq_list_add(source.get(), nullptr);
  tq_list_add(source.get(), new_record(kC));
  const StatusList result;
  EXPECT_EQ(tq_search_tq_status_by_state2(0, source.get(), result.get()), 0);
  EXPECT_THAT(result.statuses(), ElementsAre(kA));
}

TEST_F(Search, InAListLeavesTheCursorsAlone) {
  const StatusList source(kAll);
  const StatusList result({kD});
  tq_list_first(source.get());
  tq_list_first(result.get());
  tq_search_tq_status_by_state2(0, source.get(), result.get());
  EXPECT_EQ(source.get()->cursor, source.get()->head);
  EXPECT_EQ(result.get()->cursor, result.get()->head);
}

TEST_F(Search, NeedsLists) {
  const StatusList list({kA});
  EXPECT_EQ(tq_search_tq_status_by_state2(0, nullptr, list.get()), EINVAL);
  EXPECT_EQ(tq_search_tq_status_by_state2(0, list.get(), nullptr), EINVAL);
  EXPECT_EQ(tq_search_tq_status_by_type2(0, nullptr, list.get()), EINVAL);
  EXPECT_EQ(tq_search_tq_status_by_type2(0, list.get(), nullptr), EINVAL);
  EXPECT_EQ(tq_search_tq_status_by_name2("a", nullptr), EINVAL);
  EXPECT_EQ(tq_search_tq_status_by_name2(nullptr, list.get()), EINVAL);
  EXPECT_THAT(list.statuses(), ElementsAre(kA));
}

TEST_F(Search, InAListWithoutMemoryKeepsTheCopiesMadeSoFar) {
  const StatusList source(kAll);
  for (int n = 1; n <= 8; ++n) {  // two copies of three allocations and a node
    log_.clear();
    const StatusList result;
    const FailAlloc fail(n);
    EXPECT_EQ(tq_search_tq_status_by_state2(2, source.get(), result.get()), 10101);
    EXPECT_EQ(result.statuses(), n <= 4 ? std::vector<Status>() : std::vector{kB});
    EXPECT_EQ(logged().back(), "debug: tq_search_tq_status_by_state2: malloc error ");
    EXPECT_EQ(logged().size(), n % 4 == 0 ? 1U : 2U);
  }
  log_.clear();
  const StatusList result;
  const FailAlloc fail(8);
  EXPECT_EQ(tq_search_tq_status_by_type2(0, source.get(), result.get()), 10101);
  EXPECT_THAT(result.statuses(), ElementsAre(kB));
  EXPECT_THAT(logged(), ElementsAre("debug: tq_search_tq_status_by_type2: malloc error "));
}

TEST_F(Search, ByNameFindsItsOwnCopiesUntilMemoryRunsOut) {
  const Status clock{"wall clock", 1, 2, "ticks", 3};
  for (const char* text : {"clock", "wall clock", "l", ""}) {
    log_.clear();
    const StatusList list({clock});
    const FailAlloc fail(4 * 50 + 1, FailAlloc::kFromThenOn);
    EXPECT_EQ(tq_search_tq_status_by_name2(text, list.get()), 10101);
    EXPECT_EQ(list.statuses(), std::vector<Status>(51, clock));
    EXPECT_THAT(logged(), ElementsAre("debug: tq_add_tq_status: malloc error ",
                                      "debug: tq_search_tq_status_by_name2: malloc error "));
  }
}

TEST_F(Search, ByNameTakesTurnsAmongTheMatches) {
  const StatusList list({{"one"}, {"other"}, {"two"}});
  const FailAlloc fail(4 * 5 + 4, FailAlloc::kFromThenOn);  // the node of the sixth copy
  EXPECT_EQ(tq_search_tq_status_by_name2("o", list.get()), 10101);
  std::vector<std::string> names;
  for (const Status& status : list.statuses()) names.push_back(status.name);
  EXPECT_THAT(names, ElementsAre("one", "other", "two", "one", "other", "two", "one", "other"));
}

TEST_F(Search, ByNameWithoutAMatchEnds) {
  const StatusList list(kAll);
  for (const char* text : {"e", "A", "aa"}) {
    EXPECT_EQ(tq_search_tq_status_by_name2(text, list.get()), 0);
  }
  EXPECT_EQ(list.statuses(), kAll);
}

}  // namespace
}  // namespace tarvio_test
