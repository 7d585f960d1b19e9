// The grammar of general configuration files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "support/conf_pairs.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/conf.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr char kUnit[] = "util/tq_load_conf";

class GeneralFile : public testing::Test {
 protected:
  Conf open(std::string_view content) {
    write_file(path_, content);
    return Conf(tq_conf_open2(path_.c_str()));
  }
  Pairs pairs(std::string_view content) {
    const Conf conf = open(content);
    EXPECT_NE(conf, nullptr);
    return pairs_of(conf);
  }
  // What is logged after the message of the opening.
  std::vector<std::string> logged(std::string_view content) {
    const LogCapture log(TQ_LOG_DEBUG);
    open(content);
    std::vector<std::string> messages = unit_messages(log, kUnit);
    EXPECT_EQ(messages.at(0), "debug: tq_conf_open2: conf open=[" + path_ + "] ");
    messages.erase(messages.begin());
    return messages;
  }

  const TempDir directory_;
  const std::string path_ = directory_ / "file";
};

TEST_F(GeneralFile, GivesItsPairsInOrder) {
  EXPECT_THAT(pairs("port: 80\nhost:example\n"),
              ElementsAre(Pair("port", "80"), Pair("host", "example")));
}

TEST_F(GeneralFile, KeepsTheLastValueOfAKey) {
  EXPECT_THAT(pairs("a: 1\nb: 0\na: 2\n"), ElementsAre(Pair("a", "2"), Pair("b", "0")));
}

struct Line {
  std::string line;
  Pairs pairs;
};

class GeneralLine : public GeneralFile {
 protected:
  void check(const std::vector<Line>& rows) {
    for (const Line& row : rows) {
      EXPECT_EQ(pairs(row.line), row.pairs) << row.line;
      // With something around it.
      Pairs expected = row.pairs;
      expected.insert(expected.begin(), {"first", "1"});
      expected.emplace_back("last", "2");
      EXPECT_EQ(pairs("first: 1\n" + row.line + "\nlast: 2\n"), expected) << row.line;
    }
  }
};

TEST_F(GeneralLine, GivesTheLastWordOnEachSideOfTheColon) {
  check({{"old name: value", {{"name", "value"}}},
         {"a b\tc  d \t: e", {{"d", "e"}}},
         {"a: one two three", {{"a", "three"}}},
         {"a: one\ttwo \t ", {{"a", "two"}}},
         {" \ta \t:\t b\t", {{"a", "b"}}},
         {"a:b", {{"a", "b"}}}});
}

TEST_F(GeneralLine, IsSplitAtTheFirstColon) {
  check({{"a: b:c", {{"a", "b:c"}}}, {"a: b :c d:e", {{"a", "d:e"}}}, {"a::", {{"a", ":"}}}});
}

TEST_F(GeneralLine, MayHaveAnEmptyKeyOrValue) {
  check({{":b", {{"", "b"}}},
         {" \t: b", {{"", "b"}}},
         {"a:", {{"a", ""}}},
         {"a: \t ", {{"a", ""}}},
         {":", {{"", ""}}}});
}

TEST_F(GeneralLine, EndsAtANumberSignOrASemicolon) {
  check({{"a: b#c", {{"a", "b"}}},
         {"a: b;c", {{"a", "b"}}},
         {"a: b ; c # d", {{"a", "b"}}},
         {"a: b # c ; d", {{"a", "b"}}},
         {"a: #b", {{"a", ""}}}});
}

TEST_F(GeneralLine, IsSkippedWhenItHoldsNothing) {
  check({{"", {}},
         {" ", {}},
         {"\t \t", {}},
         {"# a: b", {}},
         {"; a: b", {}},
         {" \t # a: b", {}},
         {"#", {}}});
}

TEST_F(GeneralLine, TakesEveryOtherByteAsItIs) {
  check({{"a: \xff", {{"a", "\xff"}}},
         {"\xff\xff: b", {{"\xff\xff", "b"}}},
         {"a: 100%s", {{"a", "100%s"}}},
         {"a: \v\f", {{"a", "\v\f"}}}});
}

TEST_F(GeneralLine, IsCutAtAZeroByte) {
  check({{std::string("a: b\0c # d", 10), {{"a", "b"}}}, {std::string("\0 no colon", 10), {}}});
}

TEST_F(GeneralFile, TakesEveryPrintableByteInAValue) {
  std::string value;
  for (char byte = '!'; byte <= '~'; ++byte) {
    if (byte != '#' && byte != ';') value += byte;
  }
  EXPECT_THAT(pairs("a: " + value + "\n"), ElementsAre(Pair("a", value)));
}

TEST_F(GeneralFile, EndsItsLinesWithLineFeedOrCarriageReturnOrBoth) {
  for (const char* end : {"\n", "\r", "\r\n", "\n\r", "\n\n", "\r\r", "\r\n\r\n"}) {
    const std::string content = std::string("a: 1") + end + "b: 2" + end;
    EXPECT_THAT(pairs(content), ElementsAre(Pair("a", "1"), Pair("b", "2")));
  }
}

TEST_F(GeneralFile, NumbersItsLinesFrom1) {
  EXPECT_THAT(
      logged("#1\r#2\r\n#3\n\r#5\r\r#7\n\n#9"),
      ElementsAre(
          "debug: tq_conf_open2: Line data[1] = [#1] ",
          "debug: tq_conf_open2: Line data[2] = [#2] ",
          "debug: tq_conf_open2: Line data[3] = [#3] ", "debug: tq_conf_open2: Line data[4] = [] ",
          "debug: tq_conf_open2: Line data[5] = [#5] ", "debug: tq_conf_open2: Line data[6] = [] ",
          "debug: tq_conf_open2: Line data[7] = [#7] ", "debug: tq_conf_open2: Line data[8] = [] ",
          "debug: tq_conf_open2: Line data[9] = [#9] "));
}

TEST_F(GeneralFile, HasNoLineAfterItsLastLineEnd) {
  for (const char* end : {"\n", "\r", "\r\n"}) {
    EXPECT_THAT(logged(std::string("#1") + end),
                ElementsAre("debug: tq_conf_open2: Line data[1] = [#1] "));
  }
  EXPECT_THAT(logged(""), IsEmpty());
}

TEST_F(GeneralFile, TakesTheByteAfterACarriageReturn) {
  EXPECT_THAT(pairs("a: 1\r\xff: 2"), ElementsAre(Pair("a", "1"), Pair("\xff", "2")));
}

TEST_F(GeneralFile, TakesALastLineWithoutItsEnd) {
  EXPECT_THAT(pairs("a: 1\nb: 2"), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST_F(GeneralFile, TakesLinesOfAnyLength) {
  for (const size_t length :
       std::initializer_list<size_t>{1, 1000, 1020, 1021, 1022, 1023, 2044, 2045, 2046, 100000}) {
    const std::string value(length, 'x');
    EXPECT_THAT(pairs("a: " + value + "\nb: 2\n"), ElementsAre(Pair("a", value), Pair("b", "2")));
  }
}

// Not with AddressSanitizer, which copies the whole line each time that it grows.
#ifdef TARVIO_ADDRESS_SANITIZER
constexpr size_t kHugeLine = 2U << 20;
#else
constexpr size_t kHugeLine = 100U << 20;
#endif

TEST_F(GeneralFile, MayHoldALineOf100MiB) {
  write_file(path_, "a: b # ");
  std::filesystem::resize_file(path_, kHugeLine);
  FILE* file = std::fopen(path_.c_str(), "a");
  ASSERT_NE(file, nullptr);
  std::fputs("\nc: d\n", file);
  std::fclose(file);
  const Conf conf(tq_conf_open2(path_.c_str()));
  EXPECT_THAT(pairs_of(conf), ElementsAre(Pair("a", "b"), Pair("c", "d")));
}

TEST_F(GeneralFile, LogsEachStepToAFurtherWordBeforeItIsMade) {
  EXPECT_THAT(
      logged("an old name : one two\tthree # why"),
      ElementsAre("debug: tq_conf_open2: Line data[1] = [an old name : one two\tthree # why] ",
                  "debug: tq_conf_open2: Line[1]: next key = [an old name ] ",
                  "debug: tq_conf_open2: Line[1]: next key = [old name ] ",
                  "debug: tq_conf_open2: Line[1]: next value = [one two\tthree ] ",
                  "debug: tq_conf_open2: Line[1]: next value = [two\tthree ] ",
                  "debug: tq_conf_open2: Line[1]: key = [name], value = [three] "));
}

TEST_F(GeneralFile, LogsNoStepForOneWord) {
  EXPECT_THAT(logged("\n a : b \n:"),
              ElementsAre("debug: tq_conf_open2: Line data[1] = [] ",
                          "debug: tq_conf_open2: Line data[2] = [ a : b ] ",
                          "debug: tq_conf_open2: Line[2]: key = [a], value = [b] ",
                          "debug: tq_conf_open2: Line data[3] = [:] ",
                          "debug: tq_conf_open2: Line[3]: key = [], value = [] "));
}

TEST_F(GeneralFile, IsRefusedForALineWithoutAColon) {
  for (const char* content : {"two words\n", "word", "a: 1\nword\nb: 2\n", "word # a: b\n",
                              "word ; a: b\n", "a: 1\n \tb\n"}) {
    EXPECT_EQ(open(content), nullptr) << content;
  }
}

TEST_F(GeneralFile, NamesTheLineWithoutAColon) {
  EXPECT_THAT(logged("a: 1\n two words \nb: 2\n"),
              ElementsAre("debug: tq_conf_open2: Line data[1] = [a: 1] ",
                          "debug: tq_conf_open2: Line[1]: key = [a], value = [1] ",
                          "debug: tq_conf_open2: Line data[2] = [ two words ] ",
                          "debug: tq_conf_open2: LINE 2, delimiter(:) not found. "));
}

TEST_F(GeneralFile, WithoutPairsGivesAnObject) {
  for (const char* content : {"", "\n", "\r\n \n\t\n", "# comment\n; another"}) {
    EXPECT_THAT(pairs(content), IsEmpty());
  }
}

TEST_F(GeneralFile, ThatCannotBeOpenedGivesNoObject) {
  const std::string missing = directory_ / "missing";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_conf_open2(missing.c_str()), nullptr);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_conf_open2: conf open=[" + missing + "] ",
                          "debug: tq_conf_open2: fopen error "));
}

TEST_F(GeneralFile, EndsWhereItCannotBeRead) {
  {
    const LogCapture log(TQ_LOG_DEBUG);
    const Conf directory(tq_conf_open2(directory_.path().c_str()));
    ASSERT_NE(directory, nullptr);
    EXPECT_EQ(directory->count, 0);
    EXPECT_EQ(directory->pairs, nullptr);
    EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: tq_conf_open2: conf open=[" +
                                                       directory_.path().string() + "] "));
  }
  int reads = 0;
  const Hook read("read", [&reads](int fd, void* room, size_t size) -> ssize_t {
    if (++reads == 1) return ::read(fd, room, std::min(size, sizeof "a: 1\nb: 2" - 1));
    errno = EIO;
    return -1;
  });
  EXPECT_EQ(pairs("a: 1\nb: 234\nno colon"), (Pairs{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(reads, 2);
}

TEST_F(GeneralFile, NeedsAPath) { EXPECT_EQ(tq_conf_open2(nullptr), nullptr); }

TEST_F(GeneralFile, IsClosedAgain) {
  const Descriptors before = open_descriptors();
  open("a: b\n");
  open("no colon");
  EXPECT_THAT(opened_since(before), IsEmpty());
}

TEST_F(GeneralFile, WithoutMemoryForTheObjectGivesNone) {
  write_file(path_, "a: b\n");
  const LogCapture log(TQ_LOG_DEBUG);
  const FailAlloc fail(1);
  EXPECT_EQ(tq_conf_open2(path_.c_str()), nullptr);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_conf_open2: conf open=[" + path_ + "] ",
                          "debug: tq_conf_open2: malloc error "));
}

TEST_F(GeneralFile, WithoutMemoryForALineGivesThePairsBeforeIt) {
  write_file(path_, "a: 1\nb: " + std::string(10000, 'x') + "\nc: 3\n");
  // The object, the first line, its pair in three, and two steps of the long line.
  for (const int n : {2, 6, 7}) {
    const FailAlloc fail(n);
    const Conf conf(tq_conf_open2(path_.c_str()));
    ASSERT_NE(conf, nullptr);
    EXPECT_EQ(pairs_of(conf), n == 2 ? Pairs() : (Pairs{{"a", "1"}}));
    EXPECT_TRUE(fail.happened());
  }
}

TEST_F(GeneralFile, LeavesOutAPairThatFindsNoMemory) {
  write_file(path_, "a: 1\nb: 2\n");
  for (int n = 3; n <= 8; ++n) {
    const FailAlloc fail(n);
    EXPECT_EQ(pairs_of(Conf(tq_conf_open2(path_.c_str()))),
              n < 6 ? (Pairs{{"b", "2"}}) : (Pairs{{"a", "1"}}));
    EXPECT_TRUE(fail.happened());
  }
  const FailAlloc fail(9);
  EXPECT_EQ(pairs_of(Conf(tq_conf_open2(path_.c_str()))), (Pairs{{"a", "1"}, {"b", "2"}}));
  EXPECT_FALSE(fail.happened());
}

}  // namespace
}  // namespace tarvio_test
