#include "base/list_appender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/chain.h"

namespace tarvio_test {
namespace {

using tarvio::ListAppender;
using tarvio::TextList;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> texts_of(TextList& list) {
  std::vector<std::string> texts;
  for (const char* text : tarvio::Elements<char>(list.get())) texts.emplace_back(text);
  EXPECT_EQ(list.get()->count, static_cast<int32_t>(texts.size()));
  return texts;
}

void append(TextList& list, const std::vector<const char*>& texts) {
  ListAppender appender(*list.get());
  for (const char* text : texts) EXPECT_TRUE(appender.append_copy(text));
}

TEST(ListAppender, AppendsInOrder) {
  TextList list;
  append(list, {"one", "two", ""});
  EXPECT_THAT(texts_of(list), ElementsAre("one", "two", ""));
}

TEST(ListAppender, GoesOnWhereAListEnds) {
  TextList list;
  append(list, {"one", "two"});
  append(list, {"three"});
  EXPECT_THAT(texts_of(list), ElementsAre("one", "two", "three"));
}

TEST(ListAppender, CopiesAnyBytes) {
  TextList list;
  std::string text = "words";
  ASSERT_TRUE(ListAppender(*list.get()).append_copy(std::string_view(text).substr(0, 4)));
  text = "other";
  EXPECT_THAT(texts_of(list), ElementsAre("word"));
}

TEST(ListAppender, StoresAnElementAsGiven) {
  int element = 0;
  tq_list_t list = {};
  ASSERT_TRUE(ListAppender(list).append(&element));
  EXPECT_EQ(list.head->element, &element);
  EXPECT_EQ(list.count, 1);
  tarvio::free_nodes(list.head, false);
}

TEST(ListAppender, MovesAllOfAnotherList) {
  TextList from;
  TextList to;
  append(from, {"three", "four"});
  append(to, {"one", "two"});
  ListAppender appender(*to.get());
  appender.append_all(*from.get());
  EXPECT_TRUE(appender.append_copy("five"));
  EXPECT_THAT(texts_of(to), ElementsAre("one", "two", "three", "four", "five"));
  EXPECT_THAT(texts_of(from), IsEmpty());
}

TEST(ListAppender, MovesNothingOfAnEmptyList) {
  TextList from;
  TextList to;
  append(to, {"one"});
  ListAppender appender(*to.get());
  appender.append_all(*from.get());
  EXPECT_TRUE(appender.append_copy("two"));
  EXPECT_THAT(texts_of(to), ElementsAre("one", "two"));
}

// A walk to the tail for each would take hours.
TEST(ListAppender, AppendsAMillionElements) {
  int element = 0;
  tq_list_t list = {};
  ListAppender appender(list);
  for (int n = 0; n < 1'000'000; ++n) ASSERT_TRUE(appender.append(&element));
  EXPECT_EQ(list.count, 1'000'000);
  tarvio::free_nodes(list.head, false);
}

TEST(TextList, OwnsNothingAtFirst) {
  TextList list;
  EXPECT_EQ(list.get()->head, nullptr);
  EXPECT_EQ(list.get()->cursor, nullptr);
  EXPECT_EQ(list.get()->count, 0);
}

}  // namespace
}  // namespace tarvio_test
