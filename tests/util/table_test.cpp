#include "tarvio/table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/live_allocations.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(sizeof(tq_table) == sizeof(tq_list_t*));
static_assert(offsetof(tq_table_pair, key) == 0);
static_assert(offsetof(tq_table_pair, value) == sizeof(char*));

class Table : public testing::Test {
 protected:
  ~Table() override { tq_table_free(table_, 0); }

  std::vector<std::string> keys() {
    std::vector<std::string> found;
    for (const char* key = tq_table_first(table_); key != nullptr; key = tq_table_next(table_)) {
      found.emplace_back(key);
    }
    return found;
  }

  char a_[2] = "a";
  char b_[2] = "b";
  char other_a_[2] = "a";
  int values_[4] = {};
  tq_table* table_ = tq_table_create();
};

TEST_F(Table, StartsEmpty) {
  EXPECT_EQ(tq_table_size(table_), 0);
  EXPECT_EQ(tq_table_first(table_), nullptr);
  EXPECT_EQ(tq_table_next(table_), nullptr);
  EXPECT_EQ(tq_table_get(table_, "a"), nullptr);
}

TEST_F(Table, GivesTheValueOfAnEqualKey) {
  EXPECT_EQ(tq_table_put(table_, a_, &values_[0]), 0);
  EXPECT_EQ(tq_table_put(table_, b_, &values_[1]), 0);
  EXPECT_EQ(tq_table_get(table_, other_a_), &values_[0]);
  EXPECT_EQ(tq_table_get(table_, "b"), &values_[1]);
  EXPECT_EQ(tq_table_get(table_, "c"), nullptr);
  EXPECT_EQ(tq_table_get(table_, ""), nullptr);
}

TEST_F(Table, StoresThePointersThatItIsGiven) {
  tq_table_put(table_, a_, &values_[0]);
  const auto* pair = static_cast<const tq_table_pair*>(table_->pairs->head->element);
  EXPECT_EQ(pair->key, a_);
  EXPECT_EQ(pair->value, &values_[0]);
}

TEST_F(Table, KeepsPairsOfEqualKeysAndGivesTheFirst) {
  tq_table_put(table_, a_, &values_[0]);
  tq_table_put(table_, other_a_, &values_[1]);
  EXPECT_EQ(tq_table_size(table_), 2);
  EXPECT_EQ(tq_table_get(table_, "a"), &values_[0]);
}

TEST_F(Table, GivesANullValueOfTheFirstPairAsItIs) {
  tq_table_put(table_, a_, nullptr);
  tq_table_put(table_, other_a_, &values_[1]);
  EXPECT_EQ(tq_table_get(table_, "a"), nullptr);
}

TEST_F(Table, IsWalkedByItsKeysInOrderOfPutting) {
  tq_table_put(table_, b_, &values_[0]);
  tq_table_put(table_, a_, nullptr);
  tq_table_put(table_, b_, &values_[1]);
  EXPECT_THAT(keys(), ElementsAre("b", "a", "b"));
}

TEST_F(Table, MovesItsCursorInGet) {
  tq_table_put(table_, a_, &values_[0]);
  tq_table_put(table_, b_, &values_[1]);
  tq_table_get(table_, "a");
  EXPECT_EQ(tq_table_next(table_), b_);
  tq_table_first(table_);
  tq_table_get(table_, "missing");
  EXPECT_EQ(tq_table_next(table_), nullptr);
}

TEST_F(Table, RemovesNothing) {
  tq_table_put(table_, a_, &values_[0]);
  EXPECT_EQ(tq_table_remove(table_, "a"), 0);
  EXPECT_EQ(tq_table_remove(table_, "missing"), 0);
  EXPECT_EQ(tq_table_size(table_), 1);
  EXPECT_EQ(tq_table_get(table_, "a"), &values_[0]);
}

TEST_F(Table, CannotBeMadeWithoutMemory) {
  int n = 1;
  for (;; ++n) {
    const FailAlloc fail(n);
    tq_table* table = tq_table_create();
    EXPECT_EQ(table == nullptr, fail.happened());
    tq_table_free(table, 0);
    if (!fail.happened()) break;
  }
  EXPECT_EQ(n, 3);  // the table and its list
}

TEST_F(Table, StaysAsItWasWhenAPairFindsNoMemory) {
  tq_table_put(table_, a_, &values_[0]);
  int n = 1;
  for (;; ++n) {
    const FailAlloc fail(n);
    EXPECT_EQ(tq_table_put(table_, b_, &values_[1]), 0);
    if (!fail.happened()) break;
    EXPECT_THAT(keys(), ElementsAre("a"));
    EXPECT_EQ(tq_table_size(table_), 1);
  }
  EXPECT_EQ(n, 3);  // the pair and its node
  EXPECT_THAT(keys(), ElementsAre("a", "b"));
}

TEST_F(Table, MayBeNull) {
  EXPECT_EQ(tq_table_put(nullptr, a_, &values_[0]), EINVAL);
  EXPECT_EQ(tq_table_get(nullptr, "a"), nullptr);
  EXPECT_EQ(tq_table_first(nullptr), nullptr);
  EXPECT_EQ(tq_table_next(nullptr), nullptr);
  EXPECT_EQ(tq_table_size(nullptr), 0);
  EXPECT_EQ(tq_table_remove(nullptr, "a"), 0);
  EXPECT_EQ(tq_table_free(nullptr, 1), 0);
}

TEST_F(Table, StoresANullKeyAsGivenAndFindsNothingUnderIt) {
  EXPECT_EQ(tq_table_put(table_, nullptr, &values_[0]), 0);
  EXPECT_EQ(tq_table_put(table_, a_, &values_[1]), 0);
  EXPECT_EQ(tq_table_size(table_), 2);
  EXPECT_EQ(tq_table_get(table_, nullptr), nullptr);
  EXPECT_EQ(tq_table_get(table_, "a"), &values_[1]);
  EXPECT_EQ(tq_table_remove(table_, nullptr), 0);
}

TEST_F(Table, EndsAWalkOfItsKeysAtANullOne) {
  tq_table_put(table_, nullptr, &values_[0]);
  tq_table_put(table_, a_, &values_[1]);
  EXPECT_THAT(keys(), IsEmpty());
}

TEST(TableFree, FreesKeysAndValuesWithAnyFlag) {
  for (const int flag : {1, 2, -1}) {
    const LiveAllocations live;
    tq_table* table = tq_table_create();
    tq_table_put(table, ::strdup("a"), std::malloc(8));
    tq_table_put(table, ::strdup("b"), nullptr);
    tq_table_put(table, nullptr, std::malloc(8));
    EXPECT_EQ(tq_table_free(table, flag), 0);
    EXPECT_EQ(live.count(), -4);  // two keys and two values, allocated by the test
  }
}

TEST(TableFree, LeavesKeysAndValuesWithoutItsFlag) {
  const LiveAllocations live;
  tq_table* table = tq_table_create();
  char key[] = "a";
  int value = 7;
  tq_table_put(table, key, &value);
  EXPECT_EQ(tq_table_free(table, 0), 0);
  EXPECT_EQ(live.count(), 0);
  EXPECT_STREQ(key, "a");
  EXPECT_EQ(value, 7);
}

}  // namespace
}  // namespace tarvio_test
