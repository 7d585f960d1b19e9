#include "tarvio/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/live_allocations.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string chopped(std::string text) {
  EXPECT_EQ(tq_chop(text.data()), text.data());
  return text.c_str();
}

TEST(Chop, CutsOneLineEnd) {
  EXPECT_EQ(chopped("line\n"), "line");
  EXPECT_EQ(chopped("line\r\n"), "line");
  EXPECT_EQ(chopped("\n"), "");
  EXPECT_EQ(chopped("\r\n"), "");
  EXPECT_EQ(chopped("line\n\n"), "line\n");
  EXPECT_EQ(chopped("line\r\n\r\n"), "line\r\n");
  EXPECT_EQ(chopped("line\r\r\n"), "line\r");
}

TEST(Chop, LeavesWhatIsNoLineEnd) {
  for (const char* text : {"", "line", "line\r", "\r", "line\n\r", "li\nne", "line\n "}) {
    EXPECT_EQ(chopped(text), text);
  }
}

TEST(Chop, LeavesWhatStandsBeforeTheString) {
  char text[] = "\r\n";
  tq_chop(text + 1);
  EXPECT_EQ(std::string(text, 3), std::string("\r\0\0", 3));
}

TEST(Chop, AnswersNullWithNull) { EXPECT_EQ(tq_chop(nullptr), nullptr); }

TEST(StartWith, NeedsMoreThanThePrefix) {
  EXPECT_EQ(tq_str_startwith("prefix and more", "prefix"), 1);
  EXPECT_EQ(tq_str_startwith("prefixx", "prefix"), 1);
  EXPECT_EQ(tq_str_startwith("prefix", "prefix"), 0);
  EXPECT_EQ(tq_str_startwith("prefi", "prefix"), 0);
  EXPECT_EQ(tq_str_startwith("Prefix and more", "prefix"), 0);
  EXPECT_EQ(tq_str_startwith("a prefix", "prefix"), 0);
  EXPECT_EQ(tq_str_startwith("", "prefix"), 0);
}

TEST(StartWith, FindsTheEmptyPrefixInAnyTextButTheEmptyOne) {
  EXPECT_EQ(tq_str_startwith("x", ""), 1);
  EXPECT_EQ(tq_str_startwith("", ""), 0);
}

TEST(StartWith, AnswersNullWith0) {
  EXPECT_EQ(tq_str_startwith(nullptr, ""), 0);
  EXPECT_EQ(tq_str_startwith("x", nullptr), 0);
}

TEST(Equals, ComparesWholeStrings) {
  EXPECT_EQ(tq_str_equals("same", std::string("same").c_str()), 1);
  EXPECT_EQ(tq_str_equals("", ""), 1);
  for (const char* other : {"sam", "samee", "Same", "tame", "", "same "}) {
    EXPECT_EQ(tq_str_equals("same", other), 0);
    EXPECT_EQ(tq_str_equals(other, "same"), 0);
  }
}

TEST(Equals, AnswersNullWith0) {
  EXPECT_EQ(tq_str_equals(nullptr, "x"), 0);
  EXPECT_EQ(tq_str_equals("x", nullptr), 0);
  EXPECT_EQ(tq_str_equals(nullptr, nullptr), 0);
}

// A string in the middle of a buffer that is dots elsewhere.
class Memmove : public testing::Test {
 protected:
  Memmove() {
    buffer_.fill('.');
    memcpy(start_, "text", 5);
  }
  std::string bytes() const { return {buffer_.data(), buffer_.size()}; }

  std::array<char, 15> buffer_;
  char* const start_ = buffer_.data() + 5;
};

TEST_F(Memmove, MovesTowardsTheEnd) {
  EXPECT_EQ(tq_memmove(start_, 2), start_ + 2);
  EXPECT_EQ(bytes(), std::string(".....tetext\0...", 15));
}

TEST_F(Memmove, MovesTowardsTheStartByATwosComplement) {
  EXPECT_EQ(tq_memmove(start_, 0xFFFFFFFD), start_ - 3);
  EXPECT_EQ(bytes(), std::string("..text\0xt\0.....", 15));
}

TEST_F(Memmove, TakesANegativeNumberOfTheCallerAsItIs) {
  EXPECT_EQ(tq_memmove(start_, static_cast<uint32_t>(-5)), start_ - 5);
  EXPECT_STREQ(buffer_.data(), "text");
}

TEST_F(Memmove, OfNoDistanceChangesNothing) {
  EXPECT_EQ(tq_memmove(start_, 0), start_);
  EXPECT_EQ(bytes(), std::string(".....text\0.....", 15));
}

TEST_F(Memmove, MovesAnEmptyStringAsOneByte) {
  start_[0] = '\0';
  EXPECT_EQ(tq_memmove(start_, 1), start_ + 1);
  EXPECT_EQ(bytes(), std::string(".....\0\0xt\0.....", 15));
}

TEST_F(Memmove, AnswersNullWithNull) { EXPECT_EQ(tq_memmove(nullptr, 4), nullptr); }

TEST(ReplaceString, ReplacesEveryOccurrence) {
  struct Replacement {
    std::string text;
    const char* old_text;
    const char* new_text;
    std::string result;
  };
  const Replacement rows[] = {
      {"a-b-c", "-", "--", "a--b--c"},
      {"a--b", "--", "-", "a-b"},
      {"a-b-c", "-", "+", "a+b+c"},
      {"a-b-c", "-", "", "abc"},
      {"---", "-", "<->", "<-><-><->"},
      {"---", "--", "-", "--"},
      {"aaaa", "aa", "a", "aa"},
      {"whole", "whole", "", ""},
      {"whole", "whole", "other one", "other one"},
      {"text", "missing", "x", "text"},
      {"", "x", "y", ""},
      {"text", "", "x", "text"},
      {"", "", "x", ""},
      {"x", "longer", "y", "x"},
  };
  for (const Replacement& row : rows) {
    // Exactly the room that the longer of both texts needs.
    const size_t room = std::max(row.text.size(), row.result.size()) + 1;
    const std::unique_ptr<char[]> buffer(new char[room]);
    strcpy(buffer.get(), row.text.c_str());
    EXPECT_EQ(tq_replace_string(buffer.get(), row.old_text, row.new_text), buffer.get());
    EXPECT_EQ(buffer.get(), row.result) << row.text;
  }
}

TEST(ReplaceString, AnswersNullWithTheString) {
  char text[] = "a-b";
  EXPECT_EQ(tq_replace_string(text, nullptr, "x"), text);
  EXPECT_EQ(tq_replace_string(text, "-", nullptr), text);
  EXPECT_EQ(tq_replace_string(nullptr, "-", "x"), nullptr);
  EXPECT_STREQ(text, "a-b");
}

TEST(Memdup, CopiesEveryByte) {
  const char source[] = {'a', '\0', '\xff', 'b'};
  void* copy = nullptr;
  EXPECT_EQ(tq_memdup(&copy, source, sizeof source), 0);
  EXPECT_NE(copy, source);
  EXPECT_EQ(memcmp(copy, source, sizeof source), 0);
  std::free(copy);
}

TEST(Memdup, StoresNullWithoutMemory) {
  const FailAlloc fail(1);
  void* copy = &copy;
  EXPECT_EQ(tq_memdup(&copy, "text", 5), 0);
  EXPECT_EQ(copy, nullptr);
}

TEST(Memdup, StoresNullWithoutASource) {
  void* copy = &copy;
  EXPECT_EQ(tq_memdup(&copy, nullptr, 5), 0);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(tq_memdup(nullptr, "text", 5), 0);
}

TEST(Strdup, CopiesTheStringWithItsEnd) {
  for (const std::string& text : {std::string("text"), std::string(), std::string(100000, 'x')}) {
    char* copy = nullptr;
    EXPECT_EQ(tq_strdup(&copy, text.c_str()), 0);
    EXPECT_EQ(copy, text);
    EXPECT_NE(copy, text.c_str());
    std::free(copy);
  }
}

TEST(Strdup, StoresNullWithoutMemory) {
  const FailAlloc fail(1);
  char dummy = 'x';
  char* copy = &dummy;
  EXPECT_EQ(tq_strdup(&copy, "text"), 0);
  EXPECT_EQ(copy, nullptr);
}

TEST(Strdup, StoresNullWithoutAString) {
  char dummy = 'x';
  char* copy = &dummy;
  EXPECT_EQ(tq_strdup(&copy, nullptr), 0);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(tq_strdup(nullptr, "text"), 0);
}

// The tokens; nothing when there is no array. Frees the array and the copy as a caller does.
std::optional<std::vector<std::string>> tokens(const std::string& text, const char* delimiters) {
  char** array = tq_strtok(text.c_str(), delimiters);
  if (array == nullptr) return std::nullopt;
  std::vector<std::string> found;
  for (char** token = array; *token != nullptr; ++token) found.emplace_back(*token);
  std::free(array[0]);
  std::free(array);
  return found;
}

TEST(Strtok, SplitsAtRunsOfDelimiters) {
  EXPECT_THAT(*tokens("a  b", " "), ElementsAre("a", "b"));
  EXPECT_THAT(*tokens("a b c", " "), ElementsAre("a", "b", "c"));
  EXPECT_THAT(*tokens("one, two;three", ",; "), ElementsAre("one", "two", "three"));
  EXPECT_THAT(*tokens("whole", " "), ElementsAre("whole"));
  EXPECT_THAT(*tokens("a b", ""), ElementsAre("a b"));
}

TEST(Strtok, GivesNoEmptyTokensAtTheEnds) {
  EXPECT_THAT(*tokens("  a b  ", " "), ElementsAre("a", "b"));
  EXPECT_THAT(*tokens(" a", " "), ElementsAre("a"));
}

TEST(Strtok, GivesOnlyItsEndWithoutAToken) {
  EXPECT_THAT(*tokens("", " "), IsEmpty());
  EXPECT_THAT(*tokens("   ", " "), IsEmpty());
}

TEST(Strtok, HasRoomForATokenAtEverySecondByte) {
  for (const int count : {1, 2, 3, 1000}) {
    std::string text = "x";
    for (int n = 1; n < count; ++n) text += " x";
    EXPECT_EQ(*tokens(text, " "), std::vector<std::string>(static_cast<size_t>(count), "x"));
    EXPECT_EQ(*tokens(text + " ", " "), std::vector<std::string>(static_cast<size_t>(count), "x"));
  }
}

TEST(Strtok, OnlyReadsTheString) {
  const std::string text = "a b c";
  char** array = tq_strtok(text.c_str(), " ");
  EXPECT_EQ(text, "a b c");
  EXPECT_TRUE(array[0] < text.data() || array[0] > text.data() + text.size());
  std::free(array[0]);
  std::free(array);
}

TEST(Strtok, LeavesNothingAllocatedBesideTheArrayAndTheCopy) {
  for (const char* text : {"", " ", "a b", " a"}) {
    const LiveAllocations live;
    char** array = tq_strtok(text, " ");
    EXPECT_EQ(live.count(), array[0] == nullptr ? 1 : 2) << text;
    std::free(array[0]);
    std::free(array);
  }
}

TEST(Strtok, IsNullWithoutMemory) {
  for (const char* text : {"", "a b c"}) {
    int n = 1;
    for (;; ++n) {
      const FailAlloc fail(n);
      const auto found = tokens(text, " ");
      EXPECT_EQ(found.has_value(), !fail.happened());
      if (!fail.happened()) break;
    }
    EXPECT_GT(n, 1);
  }
}

TEST(Strtok, AnswersNullWithNull) {
  EXPECT_EQ(tq_strtok(nullptr, " "), nullptr);
  EXPECT_EQ(tq_strtok("a", nullptr), nullptr);
}

}  // namespace
}  // namespace tarvio_test
