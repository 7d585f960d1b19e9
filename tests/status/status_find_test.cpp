#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/log_capture.h"
#include "support/status_records.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;

constexpr char kUnit[] = "status/tq_status_manager";

const Status kA{"a", 0, 5, "one", 7};
const Status kB{"b", 2, 0, "two", 8};
const Status kC{"c", 2, 5, "three", 9};

class Find : public testing::Test {
 protected:
  Find() {
    tq_setup_status_manager();
    for (const Status& status : {kA, kB, kC}) tq_list_add(sl, new_record(status));
  }
  ~Find() override {
    tq_status_list_free(sl);
    sl = nullptr;
  }
};

TEST_F(Find, AllCopiesEveryRecordWithId0) {
  StatusList found;
  EXPECT_EQ(tq_find_all_status2(found.receive()), 0);
  Status a = kA;
  Status b = kB;
  Status c = kC;
  a.id = b.id = c.id = 0;
  EXPECT_THAT(found.statuses(), ElementsAre(a, b, c));
  EXPECT_NE(found.get(), sl);
  EXPECT_NE(found.get()->head->element, sl->head->element);
}

TEST_F(Find, ByTypeKeepsIds) {
  StatusList found;
  EXPECT_EQ(tq_find_by_type2(5, found.receive()), 0);
  EXPECT_THAT(found.statuses(), ElementsAre(kA, kC));
}

TEST_F(Find, ByStatusKeepsIds) {
  StatusList found;
  EXPECT_EQ(tq_find_by_status2(2, found.receive()), 0);
  EXPECT_THAT(found.statuses(), ElementsAre(kB, kC));
}

TEST_F(Find, WithoutAMatchGivesAnEmptyList) {
  StatusList found;
  EXPECT_EQ(tq_find_by_type2(1, found.receive()), 0);
  EXPECT_EQ(tq_list_size(found.get()), 0);
  EXPECT_EQ(tq_find_by_status2(1, found.receive()), 0);
  EXPECT_EQ(tq_list_size(found.get()), 0);
}

TEST_F(Find, InAnEmptyListGivesAnEmptyList) {
  while (tq_list_size(sl) > 0) tq_remove_status2(statuses_of(sl).front().name.c_str());
  StatusList found;
  EXPECT_EQ(tq_find_all_status2(found.receive()), 0);
  ASSERT_NE(found.get(), nullptr);
  EXPECT_EQ(tq_list_size(found.get()), 0);
}

TEST_F(Find, LeavesTheCursorOfTheStatusListAlone) {
  tq_list_first(sl);
  StatusList found;
  tq_find_all_status2(found.receive());
  tq_find_by_type2(5, found.receive());
  tq_find_by_status2(2, found.receive());
  EXPECT_EQ(sl->cursor, sl->head);
}

TEST_F(Find, NeedsAPlaceForTheList) {
  EXPECT_EQ(tq_find_all_status2(nullptr), EINVAL);
  EXPECT_EQ(tq_find_by_type2(0, nullptr), EINVAL);
  EXPECT_EQ(tq_find_by_status2(0, nullptr), EINVAL);
}

struct Failure {
  std::string name;
  std::function<int(tq_list_t**)> find;
  size_t matches;
  int code;
  std::string message;
};

void PrintTo(const Failure& row, std::ostream* stream) { *stream << row.name; }

class FindFailure : public Find, public testing::WithParamInterface<Failure> {};

TEST_P(FindFailure, HasItsCodeAndMessageAndKeepsTheCopiesMadeSoFar) {
  const Failure& row = GetParam();
  // The list, and for each match a copy of three allocations and a node.
  const int allocations = 1 + 4 * static_cast<int>(row.matches);
  for (int n = 1; n <= allocations; ++n) {
    const LogCapture log;
    StatusList found;
    const FailAlloc fail(n);
    EXPECT_EQ(row.find(found.receive()), row.code);
    EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("error: " + row.message));
    if (n == 1) {
      EXPECT_EQ(found.get(), nullptr);
    } else {
      ASSERT_NE(found.get(), nullptr);
      EXPECT_EQ(tq_list_size(found.get()), (n - 2) / 4);
      EXPECT_EQ(found.statuses().size(), static_cast<size_t>((n - 2) / 4));
    }
  }
  StatusList found;
  const FailAlloc fail(allocations + 1);
  EXPECT_EQ(row.find(found.receive()), 0);
  EXPECT_FALSE(fail.happened());
}

INSTANTIATE_TEST_SUITE_P(
    Status, FindFailure,
    testing::Values(Failure{"All", tq_find_all_status2, 3, 10002,
                            "tq_find_all_status2: _Tarvio status manager find all status failed. "},
                    Failure{"ByStatus",
                            [](tq_list_t** list) { return tq_find_by_status2(2, list); }, 2, 10003,
                            "tq_find_by_status2: _Tarvio status manager find by status failed. "},
                    Failure{"ByType", [](tq_list_t** list) { return tq_find_by_type2(5, list); }, 2,
                            10004,
                            "tq_find_by_type2: _Tarvio status manager find by type failed. "}));

// A record without a detail cannot be copied, which fails as missing memory does.
TEST_F(Find, FailsAtARecordWithoutADetail) {
  auto* record = static_cast<tq_status*>(sl->head->next->element);
  std::free(record->detail);
  record->detail = nullptr;
  const LogCapture log;
  StatusList found;
  EXPECT_EQ(tq_find_all_status2(found.receive()), 10002);
  EXPECT_EQ(tq_list_size(found.get()), 1);
}

}  // namespace
}  // namespace tarvio_test
