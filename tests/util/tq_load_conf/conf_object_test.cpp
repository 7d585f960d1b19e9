#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include "support/conf_pairs.h"
#include "support/hooks/fail_alloc.h"
#include "tarvio/conf.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

static_assert(offsetof(tq_conf, count) == 0);
static_assert(offsetof(tq_conf, pairs) == sizeof(void*));
static_assert(offsetof(tq_conf_pair, name) == 0);
static_assert(offsetof(tq_conf_pair, value) == sizeof(char*));

class ConfObject : public testing::Test {
 protected:
  int write(const std::string& name, const std::string& value) {
    return tq_conf_write(conf_.get(), name.c_str(), value.c_str());
  }

  const Conf conf_{tq_conf_open2("/dev/null")};
};

TEST_F(ConfObject, StartsWithoutPairs) {
  ASSERT_NE(conf_, nullptr);
  EXPECT_EQ(tq_count_variables(conf_.get()), 0);
  EXPECT_EQ(conf_->pairs, nullptr);
  EXPECT_STREQ(tq_conf_read(conf_.get(), "name"), "");
}

TEST_F(ConfObject, KeepsNamesInTheOrderOfTheirFirstStoring) {
  EXPECT_EQ(write("b", "1"), 0);
  EXPECT_EQ(write("a", "2"), 0);
  EXPECT_EQ(write("b", "3"), 0);
  EXPECT_THAT(pairs_of(conf_), ElementsAre(Pair("b", "3"), Pair("a", "2")));
  EXPECT_STREQ(tq_find_name(conf_.get(), 1), "a");
  EXPECT_STREQ(tq_find_value(conf_.get(), 1), "2");
}

TEST_F(ConfObject, DistinguishesNamesByEveryByte) {
  for (const char* name : {"name", "Name", "name ", "nam", ""}) EXPECT_EQ(write(name, name), 0);
  EXPECT_EQ(tq_count_variables(conf_.get()), 5);
  EXPECT_STREQ(tq_conf_read(conf_.get(), "Name"), "Name");
  EXPECT_STREQ(tq_conf_read(conf_.get(), ""), "");
  EXPECT_STREQ(tq_conf_read(conf_.get(), "names"), "");
}

TEST_F(ConfObject, CopiesNameAndValue) {
  char name[] = "name";
  char value[] = "value";
  tq_conf_write(conf_.get(), name, value);
  name[0] = value[0] = 'x';
  EXPECT_THAT(pairs_of(conf_), ElementsAre(Pair("name", "value")));
}

TEST_F(ConfObject, TakesAValueThatItOwns) {
  write("a", "one");
  write("b", "two");
  const char* own = tq_conf_read(conf_.get(), "a");
  EXPECT_EQ(tq_conf_write(conf_.get(), "a", own), 0);
  EXPECT_STREQ(tq_conf_read(conf_.get(), "a"), "one");
  own = tq_conf_read(conf_.get(), "a");
  EXPECT_EQ(tq_conf_write(conf_.get(), "b", own), 0);
  EXPECT_EQ(tq_conf_write(conf_.get(), "c", own), 0);
  // A part of the value that is replaced.
  EXPECT_EQ(tq_conf_write(conf_.get(), "a", own + 1), 0);
  EXPECT_THAT(pairs_of(conf_), ElementsAre(Pair("a", "ne"), Pair("b", "one"), Pair("c", "one")));
}

TEST_F(ConfObject, TakesANameThatItOwns) {
  write("a", "a");
  EXPECT_EQ(tq_conf_write(conf_.get(), tq_find_value(conf_.get(), 0), "b"), 0);
  EXPECT_EQ(tq_conf_write(conf_.get(), tq_find_value(conf_.get(), 0), tq_find_name(conf_.get(), 0)),
            0);
  EXPECT_THAT(pairs_of(conf_), ElementsAre(Pair("a", "b"), Pair("b", "a")));
}

TEST_F(ConfObject, IsUnchangedWhenANewPairFindsNoMemory) {
  write("a", "1");
  int n = 1;
  for (;; ++n) {
    const FailAlloc fail(n);
    const int result = write("b", "2");
    if (!fail.happened()) break;
    EXPECT_EQ(result, ENOMEM);
    EXPECT_THAT(pairs_of(conf_), ElementsAre(Pair("a", "1")));
  }
  EXPECT_EQ(n, 4);  // the value, the name and the grown array
  EXPECT_THAT(pairs_of(conf_), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST_F(ConfObject, HasNoArrayWhenTheFirstPairFindsNoMemory) {
  for (int n = 1; n <= 3; ++n) {
    const FailAlloc fail(n);
    EXPECT_EQ(write("a", "1"), ENOMEM);
    EXPECT_EQ(conf_->pairs, nullptr);
    EXPECT_EQ(conf_->count, 0);
  }
}

TEST_F(ConfObject, KeepsTheOldValueWhenTheNewOneFindsNoMemory) {
  write("a", "1");
  const FailAlloc fail(1);
  EXPECT_EQ(write("a", "2"), ENOMEM);
  EXPECT_THAT(pairs_of(conf_), ElementsAre(Pair("a", "1")));
}

TEST_F(ConfObject, AnswersNullArguments) {
  EXPECT_EQ(tq_conf_write(nullptr, "a", "1"), EINVAL);
  EXPECT_EQ(tq_conf_write(conf_.get(), nullptr, "1"), EINVAL);
  EXPECT_EQ(tq_conf_write(conf_.get(), "a", nullptr), EINVAL);
  EXPECT_THAT(pairs_of(conf_), IsEmpty());
  EXPECT_STREQ(tq_conf_read(nullptr, "a"), "");
  EXPECT_STREQ(tq_conf_read(conf_.get(), nullptr), "");
  EXPECT_EQ(tq_count_variables(nullptr), 0);
  EXPECT_EQ(tq_conf_close(nullptr), 0);
}

TEST_F(ConfObject, IsClosedWith0) {
  tq_conf* conf = tq_conf_open2("/dev/null");
  tq_conf_write(conf, "a", "1");
  EXPECT_EQ(tq_conf_close(conf), 0);
}

}  // namespace
}  // namespace tarvio_test
