#include "tarvio/status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/log_capture.h"
#include "support/status_records.h"
#include "support/unit_messages.h"
#include "tarvio/error.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "status/tq_status_manager_helper";

static_assert(offsetof(tq_status, type) == 0);
static_assert(offsetof(tq_status, id) == 4);
static_assert(offsetof(tq_status, state) == 8);
static_assert(offsetof(tq_status, name) == offsetof(tq_status, detail) + sizeof(char*));
static_assert(offsetof(tq_status, next) == offsetof(tq_status, name) + sizeof(char*));

class StatusRecord : public testing::Test {
 protected:
  std::vector<std::string> logged() const { return unit_messages(log_, kUnit); }

  LogCapture log_{TQ_LOG_DEBUG};
};

TEST_F(StatusRecord, OwnsCopiesOfItsStrings) {
  char name[] = "clock";
  char detail[] = "started";
  StatusChain chain;
  *chain.address() = tq_add_tq_status(2, 7, name, detail);
  name[0] = detail[0] = 'x';
  EXPECT_THAT(chain.statuses(), ElementsAre(Status{"clock", 2, 7, "started", 0}));
  EXPECT_EQ(chain.get()->next, nullptr);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(StatusRecord, MayHoldEmptyStrings) {
  StatusChain chain;
  *chain.address() = tq_add_tq_status(0, 0, "", "");
  EXPECT_THAT(chain.statuses(), ElementsAre(Status{"", 0, 0, "", 0}));
}

TEST_F(StatusRecord, NeedsANameBeforeItsDetailIsLookedAt) {
  EXPECT_EQ(tq_add_tq_status(0, 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(tq_add_tq_status(0, 0, nullptr, "detail"), nullptr);
  EXPECT_THAT(logged(), ElementsAre("debug: tq_add_tq_status: name is NULL ",
                                    "debug: tq_add_tq_status: name is NULL "));
}

TEST_F(StatusRecord, NeedsADetail) {
  EXPECT_EQ(tq_add_tq_status(0, 0, "name", nullptr), nullptr);
  EXPECT_THAT(logged(), ElementsAre("debug: tq_add_tq_status: detail is NULL "));
}

TEST_F(StatusRecord, IsNotMadeWithoutMemory) {
  for (int n = 1; n <= 3; ++n) {  // the record, the detail and the name
    log_.clear();
    const FailAlloc fail(n);
    EXPECT_EQ(tq_add_tq_status(0, 0, "name", "detail"), nullptr);
    EXPECT_TRUE(fail.happened());
    EXPECT_THAT(logged(), ElementsAre("debug: tq_add_tq_status: malloc error "));
  }
}

TEST_F(StatusRecord, TakesThreeAllocations) {
  const FailAlloc count(0);
  const StatusChain chain({{"name", 0, 0, "detail", 0}});
  EXPECT_EQ(count.count(), 3);
}

TEST_F(StatusRecord, IsAppendedToAChain) {
  StatusChain chain;
  for (const char* name : {"a", "b", "c"}) {
    EXPECT_EQ(tq_create_tq_status(1, 2, name, "new", chain.address()), 0);
  }
  EXPECT_THAT(chain.statuses(),
              ElementsAre(Status{"a", 1, 2, "new", 0}, Status{"b", 1, 2, "new", 0},
                          Status{"c", 1, 2, "new", 0}));
}

TEST_F(StatusRecord, IsNotAppendedWithoutMemory) {
  StatusChain chain({{"a"}});
  for (int n = 1; n <= 3; ++n) {
    log_.clear();
    const FailAlloc fail(n);
    EXPECT_EQ(tq_create_tq_status(0, 0, "b", "new", chain.address()), TQ_ERR_STATUS_MEMORY);
    EXPECT_THAT(chain.statuses(), ElementsAre(Status{"a"}));
    EXPECT_THAT(logged(), ElementsAre("debug: tq_add_tq_status: malloc error ",
                                      "debug: tq_create_tq_status: malloc error "));
  }
}

TEST_F(StatusRecord, IsNotAppendedWithoutNameAndDetail) {
  StatusChain chain;
  EXPECT_EQ(tq_create_tq_status(0, 0, nullptr, "new", chain.address()), 10101);
  EXPECT_EQ(tq_create_tq_status(0, 0, "a", nullptr, chain.address()), 10101);
  EXPECT_EQ(tq_create_tq_status(0, 0, "a", "new", nullptr), EINVAL);
  EXPECT_EQ(chain.get(), nullptr);
  EXPECT_THAT(logged(), ElementsAre("debug: tq_add_tq_status: name is NULL ",
                                    "debug: tq_create_tq_status: malloc error ",
                                    "debug: tq_add_tq_status: detail is NULL ",
                                    "debug: tq_create_tq_status: malloc error "));
}

TEST_F(StatusRecord, IsCopiedWithoutItsIdAndItsNext) {
  const StatusChain source({{"a", 2, 3, "why", 7}, {"b"}});
  StatusChain copy;
  EXPECT_EQ(tq_copy_tq_status(source.get(), copy.address()), 0);
  EXPECT_THAT(copy.statuses(), ElementsAre(Status{"a", 2, 3, "why", 0}));
  EXPECT_NE(copy.get()->name, source.get()->name);
  EXPECT_NE(copy.get()->detail, source.get()->detail);
}

TEST_F(StatusRecord, IsNullWhenItsCopyFails) {
  const StatusChain source({{"a"}});
  tq_status no_detail = *source.get();
  no_detail.detail = nullptr;
  tq_status elsewhere = {};
  tq_status* copy = &elsewhere;
  EXPECT_EQ(tq_copy_tq_status(&no_detail, &copy), 10101);
  EXPECT_EQ(copy, nullptr);
  for (int n = 1; n <= 3; ++n) {
    copy = &elsewhere;
    const FailAlloc fail(n);
    EXPECT_EQ(tq_copy_tq_status(source.get(), &copy), 10101);
    EXPECT_EQ(copy, nullptr);
  }
  copy = &elsewhere;
  EXPECT_EQ(tq_copy_tq_status(nullptr, &copy), EINVAL);
  EXPECT_EQ(copy, &elsewhere);
  EXPECT_EQ(tq_copy_tq_status(source.get(), nullptr), EINVAL);
}

class Chain : public StatusRecord {
 protected:
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const Status& status : chain_.statuses()) names.push_back(status.name);
    return names;
  }

  StatusChain chain_{{{"a", 0, 0, "", 5}, {"b", 0, 0, "", 7}, {"c", 0, 0, "", 7}}};
  tq_status* const a_ = chain_.get();
  tq_status* const b_ = a_->next;
  tq_status* const c_ = b_->next;
};

TEST_F(Chain, FindsTheFirstRecordWithAnId) {
  EXPECT_EQ(tq_search_tq_status(chain_.get(), 5), a_);
  EXPECT_EQ(tq_search_tq_status(chain_.get(), 7), b_);
  EXPECT_EQ(tq_search_tq_status(chain_.get(), 0), nullptr);
  EXPECT_EQ(tq_search_tq_status(nullptr, 7), nullptr);
}

TEST_F(Chain, FindsTheRecordBeforeAnother) {
  EXPECT_EQ(previous_node(chain_.get(), c_), b_);
  EXPECT_EQ(previous_node(chain_.get(), b_), a_);
  EXPECT_EQ(previous_node(chain_.get(), a_), nullptr);
}

TEST_F(Chain, HasNothingBeforeAnUnknownRecord) {
  const tq_status unknown = {};
  EXPECT_EQ(previous_node(chain_.get(), &unknown), nullptr);
  EXPECT_EQ(previous_node(chain_.get(), nullptr), nullptr);
  EXPECT_EQ(previous_node(nullptr, a_), nullptr);
}

TEST_F(Chain, LosesItsHead) {
  EXPECT_EQ(tq_delete_tq_status(chain_.address()), 0);
  EXPECT_THAT(names(), ElementsAre("b", "c"));
  for (int n = 0; n < 3; ++n) EXPECT_EQ(tq_delete_tq_status(chain_.address()), 0);
  EXPECT_EQ(chain_.get(), nullptr);
  EXPECT_EQ(tq_delete_tq_status(nullptr), 0);
}

TEST_F(StatusRecord, IsDeletedAtItsIndex) {
  struct Deletion {
    int index;
    std::vector<Status> left;
  };
  const Status a{"a"};
  const Status b{"b"};
  const Status c{"c"};
  const Deletion rows[] = {{INT_MIN, {b, c}}, {-3, {b, c}},   {0, {b, c}},    {1, {a, c}},
                           {2, {a, b}},       {3, {a, b, c}}, {5, {a, b, c}}, {INT_MAX, {a, b, c}}};
  for (const Deletion& row : rows) {
    StatusChain chain({a, b, c});
    EXPECT_EQ(tq_delete_tq_status_index(chain.address(), row.index), 0);
    EXPECT_EQ(chain.statuses(), row.left) << row.index;
  }
}

TEST_F(Chain, ThatIsEmptyHasNothingToDelete) {
  StatusChain empty;
  for (const int index : {-1, 0, 1}) {
    EXPECT_EQ(tq_delete_tq_status_index(empty.address(), index), 0);
  }
  EXPECT_EQ(tq_delete_tq_status_index(nullptr, 0), 0);
  EXPECT_EQ(tq_delete_tq_status_recurse(empty.address()), 0);
  EXPECT_EQ(tq_delete_tq_status_recurse(nullptr), 0);
  EXPECT_EQ(tq_delete_tq_status_node(empty.address(), a_), 0);
}

TEST_F(Chain, LosesARecordWhoseStringsTheCallerKeeps) {
  char* const names_before[] = {a_->name, b_->name, c_->name};
  char* const details[] = {a_->detail, b_->detail, c_->detail};
  EXPECT_EQ(tq_delete_tq_status_node(chain_.address(), b_), 0);
  EXPECT_THAT(names(), ElementsAre("a", "c"));
  EXPECT_EQ(tq_delete_tq_status_node(chain_.address(), a_), 0);
  EXPECT_THAT(names(), ElementsAre("c"));
  EXPECT_EQ(tq_delete_tq_status_node(chain_.address(), c_), 0);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_STREQ(names_before[0], "a");
  EXPECT_STREQ(names_before[1], "b");
  EXPECT_STREQ(names_before[2], "c");
  for (char* name : names_before) std::free(name);
  for (char* detail : details) std::free(detail);
}

TEST_F(Chain, KeepsItsRecordsWhenAnUnknownOneIsDeleted) {
  tq_status unknown = {};
  EXPECT_EQ(tq_delete_tq_status_node(chain_.address(), &unknown), 0);
  EXPECT_EQ(tq_delete_tq_status_node(chain_.address(), nullptr), 0);
  EXPECT_EQ(tq_delete_tq_status_node(nullptr, a_), 0);
  EXPECT_THAT(names(), ElementsAre("a", "b", "c"));
}

TEST_F(Chain, IsDeletedAsAWhole) {
  EXPECT_EQ(tq_delete_tq_status_recurse(chain_.address()), 0);
  EXPECT_EQ(chain_.get(), nullptr);
}

TEST(StatusListFree, FreesRecordsAndTheirStrings) {
  tq_list_t* list = tq_list_create();
  for (const char* name : {"a", "b"}) tq_list_add(list, new_record({name}));
  EXPECT_EQ(tq_status_list_free(list), 0);  // the leak check sees what is left
  EXPECT_EQ(tq_status_list_free(tq_list_create()), 0);
  EXPECT_EQ(tq_status_list_free(nullptr), 0);
}

TEST(StatusListFree, FreesRecordsAfterANullElement) {
  tq_list_t* list = tq_list_create();
  tq_list_add(list, nullptr);
  tq_list_add(list, new_record({"a"}));
  EXPECT_EQ(tq_status_list_free(list), 0);
}

}  // namespace
}  // namespace tarvio_test
