#include "tarvio/list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/live_allocations.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(offsetof(tq_list_t, head) == 0);
static_assert(offsetof(tq_list_t, cursor) == sizeof(void*));
static_assert(offsetof(tq_list_t, count) == 2 * sizeof(void*));
static_assert(offsetof(tq_list_node, next) == 0);
static_assert(offsetof(tq_list_node, element) == sizeof(void*));

class List : public testing::Test {
 protected:
  ~List() override { tq_list_free(list_, 0); }

  void add(std::initializer_list<int> numbers) {
    for (const int number : numbers) EXPECT_EQ(tq_list_add(list_, &numbers_[number]), 0);
  }

  int number_of(const void* element) const {
    return element == nullptr ? -1 : static_cast<int>(static_cast<const int*>(element) - numbers_);
  }

  std::vector<int> numbers() const {
    std::vector<int> found;
    for (const tq_list_node* node = list_->head; node != nullptr; node = node->next) {
      found.push_back(number_of(node->element));
    }
    EXPECT_EQ(tq_list_size(list_), static_cast<int32_t>(found.size()));
    return found;
  }

  void remove_all() {
    while (tq_list_remove(list_, 0) == 0) {
    }
  }

  int first() { return number_of(tq_list_first(list_)); }
  int next() { return number_of(tq_list_next(list_)); }

  int numbers_[16] = {};  // element n is the address of the n-th
  tq_list_t* list_ = tq_list_create();
};

TEST_F(List, StartsEmptyWithoutACursor) {
  EXPECT_EQ(list_->head, nullptr);
  EXPECT_EQ(list_->cursor, nullptr);
  EXPECT_EQ(list_->count, 0);
  EXPECT_EQ(tq_list_size(list_), 0);
  EXPECT_EQ(tq_list_get_last(list_), nullptr);
  EXPECT_EQ(tq_list_next(list_), nullptr);
}

TEST_F(List, KeepsTheOrderOfAdding) {
  add({3, 1, 2, 1});
  EXPECT_THAT(numbers(), ElementsAre(3, 1, 2, 1));
}

TEST_F(List, GivesItsLastNode) {
  add({3});
  EXPECT_EQ(tq_list_get_last(list_), list_->head);
  add({1});
  EXPECT_EQ(tq_list_get_last(list_), list_->head->next);
  EXPECT_EQ(tq_list_get_last(list_)->element, &numbers_[1]);
}

TEST_F(List, GetsTheElementAtAnIndex) {
  add({4, 5, 6});
  for (const int index : {0, 1, 2}) {
    void* element = nullptr;
    EXPECT_EQ(tq_list_get(list_, index, &element), 0);
    EXPECT_EQ(number_of(element), index + 4);
  }
}

TEST_F(List, GetsNothingOutsideItsIndexes) {
  add({4, 5, 6});
  for (const int index : {-1, 3, 4, INT_MIN, INT_MAX}) {
    void* element = &numbers_;
    EXPECT_EQ(tq_list_get(list_, index, &element), EINVAL);
    EXPECT_EQ(element, nullptr) << index;
  }
}

TEST_F(List, GetsNothingWhenEmpty) {
  void* element = &numbers_;
  EXPECT_EQ(tq_list_get(list_, 0, &element), EINVAL);
  EXPECT_EQ(element, nullptr);
}

TEST_F(List, KeepsItsCursorInGet) {
  add({4, 5, 6});
  first();
  void* element = nullptr;
  tq_list_get(list_, 2, &element);
  EXPECT_EQ(next(), 5);
}

TEST_F(List, IsWalkedFromFirstToNull) {
  add({4, 5, 6});
  EXPECT_EQ(first(), 4);
  EXPECT_EQ(next(), 5);
  EXPECT_EQ(next(), 6);
  EXPECT_EQ(next(), -1);
  EXPECT_EQ(next(), -1);
  EXPECT_EQ(list_->cursor, nullptr);
  EXPECT_EQ(first(), 4);
}

TEST_F(List, HasNoNextBeforeFirst) {
  add({4, 5});
  EXPECT_EQ(next(), -1);
  EXPECT_EQ(list_->cursor, nullptr);
}

TEST_F(List, ShowsNodesAddedDuringAWalk) {
  add({4});
  first();
  add({5});
  EXPECT_EQ(next(), 5);
}

TEST_F(List, KeepsItsCursorInFirstWhenEmpty) {
  tq_list_node elsewhere = {nullptr, &numbers_[7]};
  list_->cursor = &elsewhere;
  EXPECT_EQ(tq_list_first(list_), nullptr);
  EXPECT_EQ(list_->cursor, &elsewhere);
}

TEST_F(List, FindsTheFirstPlaceOfAnElement) {
  add({4, 5, 6, 5});
  EXPECT_EQ(tq_list_indexof(list_, &numbers_[4]), 0);
  EXPECT_EQ(tq_list_indexof(list_, &numbers_[5]), 1);
  EXPECT_EQ(tq_list_indexof(list_, &numbers_[7]), -1);
}

TEST_F(List, ComparesPointersAndNotWhatTheyPointTo) {
  add({4});
  ASSERT_EQ(numbers_[4], numbers_[5]);
  EXPECT_EQ(tq_list_indexof(list_, &numbers_[5]), -1);
}

TEST_F(List, MovesItsCursorInIndexOf) {
  add({4, 5, 6});
  tq_list_indexof(list_, &numbers_[5]);
  EXPECT_EQ(next(), 6);
  first();
  tq_list_indexof(list_, &numbers_[7]);
  EXPECT_EQ(list_->cursor, nullptr);
}

TEST_F(List, StopsEveryWalkAtANullElement) {
  add({4});
  EXPECT_EQ(tq_list_add(list_, nullptr), 0);
  add({5});
  EXPECT_EQ(tq_list_size(list_), 3);
  EXPECT_EQ(first(), 4);
  EXPECT_EQ(next(), -1);
  EXPECT_EQ(next(), 5);
  EXPECT_EQ(tq_list_indexof(list_, &numbers_[5]), -1);
  EXPECT_EQ(tq_list_indexof(list_, nullptr), -1);
}

TEST_F(List, GetsANullElementAsAnElement) {
  tq_list_add(list_, nullptr);
  add({5});
  void* element = &numbers_;
  EXPECT_EQ(tq_list_get(list_, 0, &element), 0);
  EXPECT_EQ(element, nullptr);
  EXPECT_EQ(tq_list_get(list_, 1, &element), 0);
  EXPECT_EQ(number_of(element), 5);
}

struct Removal {
  int index;
  std::vector<int> left;
};

const Removal kRemovalsOfThree[] = {{INT_MIN, {5, 6}}, {-1, {5, 6}},     {0, {5, 6}},
                                    {1, {4, 6}},       {2, {4, 5}},      {3, {4, 5}},
                                    {7, {4, 5}},       {INT_MAX, {4, 5}}};

TEST_F(List, ClampsTheIndexOfARemoval) {
  for (const Removal& row : kRemovalsOfThree) {
    add({4, 5, 6});
    EXPECT_EQ(tq_list_remove(list_, row.index), 0);
    EXPECT_EQ(numbers(), row.left) << row.index;
    remove_all();
  }
}

TEST_F(List, AppendsAfterWhatARemovalLeft) {
  for (const Removal& row : kRemovalsOfThree) {
    add({4, 5, 6});
    tq_list_remove(list_, row.index);
    EXPECT_EQ(number_of(tq_list_get_last(list_)->element), row.left.back());
    add({7});
    std::vector<int> expected = row.left;
    expected.push_back(7);
    EXPECT_EQ(numbers(), expected) << row.index;
    remove_all();
  }
}

TEST_F(List, RemovesItsOnlyNodeAtAnyIndex) {
  for (const int index : {INT_MIN, -1, 0, 1, 7, INT_MAX}) {
    add({4});
    EXPECT_EQ(tq_list_remove(list_, index), 0);
    EXPECT_THAT(numbers(), IsEmpty());
    EXPECT_EQ(tq_list_get_last(list_), nullptr);
  }
}

TEST_F(List, RemovesNothingWhenEmpty) {
  for (const int index : {-1, 0, 1}) EXPECT_EQ(tq_list_remove(list_, index), EINVAL);
  EXPECT_THAT(numbers(), IsEmpty());
}

TEST_F(List, IsEmptyWhenItsCountSaysSo) {
  add({4});
  list_->count = 0;
  EXPECT_EQ(tq_list_get_last(list_), nullptr);
  EXPECT_EQ(tq_list_remove(list_, 0), EINVAL);
  list_->count = 1;
  EXPECT_THAT(numbers(), ElementsAre(4));
}

TEST_F(List, KeepsItsCursorWhenAnotherNodeIsRemoved) {
  add({4, 5, 6});
  first();
  next();
  tq_list_remove(list_, 0);
  EXPECT_EQ(next(), 6);
}

TEST_F(List, NeverFreesARemovedElement) {
  const LiveAllocations live;
  int* element = static_cast<int*>(std::malloc(sizeof(int)));
  tq_list_add(list_, element);
  tq_list_remove(list_, 0);
  EXPECT_EQ(live.count(), 0);
  std::free(element);
}

TEST_F(List, CannotBeMadeWithoutMemory) {
  const FailAlloc fail(1);
  EXPECT_EQ(tq_list_create(), nullptr);
}

TEST_F(List, IsAsItWasWhenMemoryRunsOutInAdd) {
  for (int n = 0; n < 3; ++n) {
    const std::vector<int> before = numbers();
    {
      const FailAlloc fail(1);
      EXPECT_EQ(tq_list_add(list_, &numbers_[9]), ENOMEM);
      EXPECT_TRUE(fail.happened());
    }
    EXPECT_EQ(numbers(), before);
    add({n});
  }
  EXPECT_THAT(numbers(), ElementsAre(0, 1, 2));
}

TEST_F(List, TakesOneAllocationForEachElement) {
  const FailAlloc count(0);
  add({1, 2, 3});
  EXPECT_EQ(count.count(), 3);
}

TEST_F(List, MayBeNull) {
  void* element = &numbers_;
  EXPECT_EQ(tq_list_add(nullptr, &numbers_), EINVAL);
  EXPECT_EQ(tq_list_get(nullptr, 0, &element), EINVAL);
  EXPECT_EQ(element, nullptr);
  EXPECT_EQ(tq_list_get(list_, 0, nullptr), EINVAL);
  EXPECT_EQ(tq_list_get_last(nullptr), nullptr);
  EXPECT_EQ(tq_list_first(nullptr), nullptr);
  EXPECT_EQ(tq_list_next(nullptr), nullptr);
  EXPECT_EQ(tq_list_indexof(nullptr, &numbers_), -1);
  EXPECT_EQ(tq_list_remove(nullptr, 0), EINVAL);
  EXPECT_EQ(tq_list_size(nullptr), 0);
  EXPECT_EQ(tq_list_free(nullptr, 1), 0);
}

// Three fields and nothing after them: the library keeps nothing of its own in a list.
TEST(ListOnTheStack, WorksLikeACreatedOne) {
  struct {
    tq_list_t list;
    char after[8];
  } client = {{}, {'u', 'n', 't', 'o', 'u', 'c', 'h', 'd'}};
  tq_list_t* const list = &client.list;
  int elements[3] = {};
  for (int& element : elements) EXPECT_EQ(tq_list_add(list, &element), 0);
  EXPECT_EQ(tq_list_size(list), 3);
  EXPECT_EQ(tq_list_first(list), &elements[0]);
  EXPECT_EQ(tq_list_next(list), &elements[1]);
  EXPECT_EQ(tq_list_indexof(list, &elements[2]), 2);
  EXPECT_EQ(tq_list_get_last(list)->element, &elements[2]);
  EXPECT_EQ(std::string_view(client.after, sizeof client.after), "untouchd");
  while (tq_list_remove(list, 0) == 0) {
  }
  EXPECT_EQ(list->head, nullptr);
}

TEST(ListOnTheStack, TakesNodesOfItsOwner) {
  int elements[3] = {};
  tq_list_node second = {nullptr, &elements[1]};
  tq_list_node first = {&second, &elements[0]};
  tq_list_t list = {&first, nullptr, 2};
  EXPECT_EQ(tq_list_add(&list, &elements[2]), 0);
  EXPECT_EQ(second.next->element, &elements[2]);
  EXPECT_EQ(list.count, 3);
  EXPECT_EQ(tq_list_remove(&list, 2), 0);
  EXPECT_EQ(second.next, nullptr);
}

TEST(ListFree, LeavesTheElementsWithoutItsFlag) {
  int element = 7;
  tq_list_t* list = tq_list_create();
  tq_list_add(list, &element);
  EXPECT_EQ(tq_list_free(list, 0), 0);
  EXPECT_EQ(element, 7);
}

TEST(ListFree, FreesTheElementsWithAnyFlag) {
  for (const int flag : {1, 2, -1, INT_MIN}) {
    const LiveAllocations live;
    tq_list_t* list = tq_list_create();
    for (int n = 0; n < 3; ++n) tq_list_add(list, std::malloc(8));
    EXPECT_EQ(tq_list_free(list, flag), 0);
    EXPECT_EQ(live.count(), -3);  // the elements were allocated by the test
  }
}

TEST(ListFree, FreesElementsAfterANullOne) {
  const LiveAllocations live;
  tq_list_t* list = tq_list_create();
  for (void* element :
       {static_cast<void*>(nullptr), std::malloc(8), static_cast<void*>(nullptr), std::malloc(8)}) {
    tq_list_add(list, element);
  }
  EXPECT_EQ(tq_list_free(list, 1), 0);
  EXPECT_EQ(live.count(), -2);
}

}  // namespace
}  // namespace tarvio_test
