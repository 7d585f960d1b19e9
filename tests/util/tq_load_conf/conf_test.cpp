// The grammar of package control files.
#include "tarvio/conf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
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
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr char kUnit[] = "util/tq_load_conf";

class ControlFile : public testing::Test {
 protected:
  Conf open(std::string_view content) {
    write_file(path_, content);
    return Conf(tq_conf_open(path_.c_str()));
  }
  // Also for a file without pairs, which gives no object.
  Pairs pairs(std::string_view content) { return pairs_of(open(content)); }

  const TempDir directory_;
  const std::string path_ = directory_ / "file";
};

TEST_F(ControlFile, GivesItsPairsInOrder) {
  const Conf conf = open("Package: clock\nVersion: 1.0\n");
  EXPECT_THAT(pairs_of(conf), ElementsAre(Pair("Package", "clock"), Pair("Version", "1.0")));
  EXPECT_EQ(tq_count_variables(conf.get()), 2);
  EXPECT_STREQ(tq_conf_read(conf.get(), "Package"), "clock");
  EXPECT_STREQ(tq_conf_read(conf.get(), "Version"), "1.0");
  EXPECT_STREQ(tq_conf_read(conf.get(), "Maintainer"), "");
  EXPECT_STREQ(tq_conf_read(conf.get(), "package"), "");
}

TEST_F(ControlFile, KeepsTheLastValueOfAName) {
  EXPECT_THAT(pairs("A: 1\nB: 2\nA: 3\n"), ElementsAre(Pair("A", "3"), Pair("B", "2")));
}

struct Line {
  std::string line;
  Pairs pairs;
};

class ControlLine : public ControlFile {
 protected:
  void check(const std::vector<Line>& rows) {
    for (const Line& row : rows) {
      EXPECT_EQ(pairs(row.line), row.pairs) << row.line;
      // With something around it.
      Pairs expected = row.pairs;
      expected.insert(expected.begin(), {"First", "1"});
      expected.emplace_back("Last", "2");
      EXPECT_EQ(pairs("First: 1\n" + row.line + "\nLast: 2\n"), expected) << row.line;
    }
  }
};

TEST_F(ControlLine, IsSplitAtColonsAndBlanksAndGivesItsFirstTwoWords) {
  check({{"Description: two words", {{"Description", "two"}}},
         {"Depends: libc, zlib", {{"Depends", "libc,"}}},
         {"Installed Size: 100", {{"Installed", "Size"}}},
         {"A:   b", {{"A", "b"}}},
         {"  A: b", {{"A", "b"}}},
         {"A : b", {{"A", "b"}}},
         {"A:: b", {{"A", "b"}}},
         {": A: b", {{"A", "b"}}},
         {": a b", {{"a", "b"}}},
         {"A: b:c", {{"A", "b"}}},
         {"A:b: c", {{"A", "b"}}}});
}

TEST_F(ControlLine, TakesEveryOtherByteAsItIs) {
  check({{"A: 100%s", {{"A", "100%s"}}},
         {"#A: b;c", {{"#A", "b;c"}}},
         {"A: \tb", {{"A", "\tb"}}},
         {"A: b\tc", {{"A", "b\tc"}}},
         {"A: \xff", {{"A", "\xff"}}}});
}

TEST_F(ControlLine, IsSkippedWithoutColonAndBlankOrTwoWords) {
  check({{"", {}},
         {"A", {}},
         {":", {}},
         {" ", {}},
         {": ", {}},
         {"A: ", {}},
         {": b", {}},
         {"A: :", {}},
         {"A:b", {}},
         {"A:\tb", {}},
         {"A b", {}},
         {" two words", {}}});
}

TEST_F(ControlFile, TakesEveryPrintableByteInAValue) {
  std::string value;
  for (char byte = '!'; byte <= '~'; ++byte) {
    if (byte != ':') value += byte;
  }
  EXPECT_THAT(pairs("A: " + value + "\n"), ElementsAre(Pair("A", value)));
}

TEST_F(ControlFile, EndsItsLinesWithALineFeedAndACarriageReturnBeforeIt) {
  EXPECT_THAT(pairs("A: b\r\nC: d\r\n"), ElementsAre(Pair("A", "b"), Pair("C", "d")));
}

TEST_F(ControlFile, KeepsALoneCarriageReturn) {
  EXPECT_THAT(pairs("A: b\rC: d\n"), ElementsAre(Pair("A", "b\rC")));
  EXPECT_THAT(pairs("A: b\n\rC: d\r"), ElementsAre(Pair("A", "b"), Pair("\rC", "d\r")));
}

TEST_F(ControlFile, TakesALastLineWithoutItsEnd) {
  EXPECT_THAT(pairs("A: b\nC: d"), ElementsAre(Pair("A", "b"), Pair("C", "d")));
}

TEST_F(ControlFile, CutsALineAtAZeroByte) {
  EXPECT_THAT(pairs(std::string_view("A: b\0c: d\nE: f\n", 15)),
              ElementsAre(Pair("A", "b"), Pair("E", "f")));
}

// A line "N: xx...x" of this length without its end.
std::string line_of(size_t length) { return "N: " + std::string(length - 3, 'x'); }

TEST_F(ControlFile, TakesALineOf254BytesWhole) {
  EXPECT_THAT(pairs(line_of(254) + "\nA: b\n"),
              ElementsAre(Pair("N", std::string(251, 'x')), Pair("A", "b")));
}

TEST_F(ControlFile, TakesALongerLineAsPiecesOf255Bytes) {
  const auto first = Pair("N", std::string(252, 'x'));
  EXPECT_THAT(pairs(line_of(255) + "\nA: b\n"), ElementsAre(first, Pair("A", "b")));
  EXPECT_THAT(pairs(line_of(256) + "\nA: b\n"), ElementsAre(first, Pair("A", "b")));
  EXPECT_THAT(pairs(line_of(255) + "A: b\n"), ElementsAre(first, Pair("A", "b")));
  EXPECT_THAT(pairs(line_of(255) + line_of(255) + "A: b"), ElementsAre(first, Pair("A", "b")));
  // Every piece needs its own colon and blank.
  EXPECT_THAT(pairs(std::string(254, 'N') + ": b\nA: b\n"), ElementsAre(Pair("A", "b")));
}

TEST_F(ControlFile, WithoutAPairGivesNoObject) {
  for (const char* content : {"", "\n", "\n\n\r\n", "A\n", "no pair here\n", "A: \n"}) {
    EXPECT_EQ(open(content), nullptr) << content;
  }
}

TEST_F(ControlFile, ThatIsBinaryGivesNoObject) {
  std::string bytes;
  for (int n = 0; n < 100000; ++n) bytes += static_cast<char>(n % 251 == ':' ? 0 : n % 251);
  EXPECT_EQ(open(bytes), nullptr);
}

TEST_F(ControlFile, MayHoldManyPairs) {
  std::string content;
  Pairs expected;
  for (int n = 0; n < 2000; ++n) {
    expected.emplace_back("Name" + std::to_string(n), std::to_string(n));
    content += expected.back().first + ": " + expected.back().second + "\n";
  }
  EXPECT_EQ(pairs(content), expected);
}

// Sparse, so that it costs neither space nor time.
TEST_F(ControlFile, MayHoldALineOf100MiB) {
  write_file(path_, "A: b ");
  std::filesystem::resize_file(path_, 100U << 20);
  FILE* file = std::fopen(path_.c_str(), "a");
  ASSERT_NE(file, nullptr);
  std::fputs("\nC: d\n", file);
  std::fclose(file);
  const Conf conf(tq_conf_open(path_.c_str()));
  EXPECT_THAT(pairs_of(conf), ElementsAre(Pair("A", "b"), Pair("C", "d")));
}

// A hostile package may hold such a file, which is sparse: it would be read for years.
TEST_F(ControlFile, GivesNoObjectWhenItIsLargerThan128MiB) {
  for (const uintmax_t size : {(uintmax_t{128} << 20) + 1, uintmax_t{1} << 40}) {
    write_file(path_, "A: b\n");
    std::filesystem::resize_file(path_, size);
    EXPECT_EQ(tq_conf_open(path_.c_str()), nullptr) << size;
  }
}

// Each pair is compared with all before it: those of a hostile package would take days.
TEST_F(ControlFile, IsReadUpTo10000Pairs) {
  std::string content;
  for (int n = 0; n < 1'000'000; ++n) content += "N" + std::to_string(n) + ": 1\n";
  const Conf conf = open(content);
  EXPECT_EQ(tq_count_variables(conf.get()), 10000);
  EXPECT_STREQ(tq_find_name(conf.get(), 9999), "N9999");
}

TEST_F(ControlFile, IsLoggedWhenItIsOpened) {
  const LogCapture log(TQ_LOG_DEBUG);
  open("A: b\n");
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: " + path_ + ": open control file name."));
}

TEST_F(ControlFile, ThatIsNotRegularGivesNoObjectWithoutAnErrorMessage) {
  const std::string pipe = directory_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {std::string(directory_ / "missing"), directory_.path().string(),
                                  pipe, std::string("/dev/null"), std::string()}) {
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(tq_conf_open(path.c_str()), nullptr);
    EXPECT_THAT(unit_messages(log, kUnit),
                ElementsAre("debug: " + path + ": open control file name."));
  }
}

TEST_F(ControlFile, ThatCannotBeOpenedGivesNoObjectAndSaysSo) {
  write_file(path_, "A: b\n");
  const LogCapture log(TQ_LOG_DEBUG);
  const Hook hook(
      "fopen", +[](const char*, const char*) -> FILE* {
        errno = EACCES;
        return nullptr;
      });
  EXPECT_EQ(tq_conf_open(path_.c_str()), nullptr);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: " + path_ + ": open control file name.",
                          "debug: tq_conf_open: fopen error " + path_ + " "));
}

TEST_F(ControlFile, NeedsAPath) { EXPECT_EQ(tq_conf_open(nullptr), nullptr); }

TEST_F(ControlFile, IsOpenedInBinaryModeForThisProcessOnly) {
  write_file(path_, "A: b\n");
  std::string mode;
  Hook hook("fopen", [&](const char* path, const char* given) {
    mode = given;
    return std::fopen(path, given);
  });
  const Conf conf(tq_conf_open(path_.c_str()));
  EXPECT_EQ(mode, "rbe");
}

TEST_F(ControlFile, IsClosedAgain) {
  const Descriptors before = open_descriptors();
  open("A: b\n");
  open("no pair");
  EXPECT_THAT(opened_since(before), IsEmpty());
}

TEST_F(ControlFile, WithoutMemoryForTheObjectGivesNone) {
  write_file(path_, "A: b\n");
  const LogCapture log(TQ_LOG_DEBUG);
  const FailAlloc fail(1);
  EXPECT_EQ(tq_conf_open(path_.c_str()), nullptr);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: " + path_ + ": open control file name.",
                          "debug: tq_conf_open: malloc error "));
}

TEST_F(ControlFile, LeavesOutAPairThatFindsNoMemory) {
  write_file(path_, "A: 1\nB: 2\nA: 3\n");
  // The first two lines take a value, a name and the grown array each, the third a value.
  const std::vector<Pairs> expected = {
      {{"B", "2"}, {"A", "3"}},
      {{"B", "2"}, {"A", "3"}},
      {{"B", "2"}, {"A", "3"}},
      {{"A", "3"}},
      {{"A", "3"}},
      {{"A", "3"}},
      {{"A", "1"}, {"B", "2"}},
  };
  int n = 2;
  for (const Pairs& left : expected) {
    const FailAlloc fail(n++);
    EXPECT_EQ(pairs_of(Conf(tq_conf_open(path_.c_str()))), left);
    EXPECT_TRUE(fail.happened());
  }
  const FailAlloc fail(n);
  EXPECT_EQ(pairs_of(Conf(tq_conf_open(path_.c_str()))), (Pairs{{"A", "3"}, {"B", "2"}}));
  EXPECT_FALSE(fail.happened());
}

}  // namespace
}  // namespace tarvio_test
