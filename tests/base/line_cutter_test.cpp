#include "base/line_cutter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarvio_test {
namespace {

using tarvio::Excess;
using tarvio::LineCutter;
using tarvio::LineEnd;
using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;
using namespace std::literals;

// Feeds a text in chunks of the given size and collects its lines.
Lines cut(LineCutter& cutter, std::string_view text, size_t chunk_size) {
  Lines lines;
  for (; !text.empty(); text.remove_prefix(std::min(chunk_size, text.size()))) {
    std::string_view chunk = text.substr(0, chunk_size);
    while (!chunk.empty()) {
      if (cutter.feed(chunk) != LineCutter::Result::kLine) continue;
      EXPECT_EQ(cutter.text()[cutter.line().size()], '\0');
      lines.emplace_back(cutter.line());
    }
  }
  if (cutter.finish()) lines.emplace_back(cutter.line());
  EXPECT_FALSE(cutter.finish());
  return lines;
}

// The lines must not depend on how the bytes arrive.
void expect_lines(auto make_cutter, std::string_view text, const Lines& expected) {
  for (size_t chunk_size = 1; chunk_size <= text.size() + 1; ++chunk_size) {
    EXPECT_EQ(make_cutter([&](LineCutter& cutter) { return cut(cutter, text, chunk_size); }),
              expected)
        << testing::PrintToString(text) << " in chunks of " << chunk_size;
  }
}

void expect_growing(LineEnd line_end, std::string_view text, const Lines& expected) {
  const auto make = [=](auto use) {
    LineCutter cutter(line_end);
    return use(cutter);
  };
  expect_lines(make, text, expected);
}

template <size_t kSize>
void expect_fixed(LineEnd line_end, Excess excess, std::string_view text, const Lines& expected) {
  const auto make = [=](auto use) {
    std::array<char, kSize> room;
    LineCutter cutter(line_end, room, excess);
    return use(cutter);
  };
  expect_lines(make, text, expected);
}

TEST(LineCutter, KeepsTheLineFeed) {
  expect_growing(LineEnd::kLineFeed, "one\n\ntwo\r\nlast", {"one\n", "\n", "two\r\n", "last"});
}

TEST(LineCutter, EndsLinesAtEitherAndKeepsIt) {
  expect_growing(LineEnd::kEither, "one\r\ntwo\rlast\n", {"one\r", "\n", "two\r", "last\n"});
}

TEST(LineCutter, EndsLinesAtAnyAndKeepsNone) {
  expect_growing(LineEnd::kAny, "one\r\ntwo\rthree\n\rfour\r\r\nlast",
                 {"one", "two", "three", "", "four", "", "last"});
}

TEST(LineCutter, HasNoLineAfterTheLastLineEnd) {
  for (const char* text : {"one\n", "one\r", "one\r\n"}) {
    expect_growing(LineEnd::kAny, text, {"one"});
  }
  expect_growing(LineEnd::kAny, "", {});
}

TEST(LineCutter, KeepsZeroBytes) { expect_growing(LineEnd::kAny, "a\0b\n\0"sv, {"a\0b"s, "\0"s}); }

TEST(LineCutter, GrowsToAnyLength) {
  for (const size_t length : {1022U, 1023U, 1024U, 1025U, 5118U, 5119U, 5120U, 100000U}) {
    const std::string line(length, 'x');
    for (const size_t chunk_size : {1U, 1000U, 1023U, 1024U, 4096U, 200000U}) {
      LineCutter cutter(LineEnd::kAny);
      EXPECT_EQ(cut(cutter, line + "\nlast", chunk_size), (Lines{line, "last"}))
          << length << " in chunks of " << chunk_size;
      LineCutter keeping(LineEnd::kLineFeed);
      EXPECT_EQ(cut(keeping, line + "\nlast", chunk_size), (Lines{line + "\n", "last"}))
          << length << " in chunks of " << chunk_size;
    }
  }
}

TEST(LineCutter, GivesALongLineInPieces) {
  expect_fixed<5>(LineEnd::kLineFeed, Excess::kNextPiece, "abcdefghij\nk\n",
                  {"abcd", "efgh", "ij\n", "k\n"});
}

// As fgets does it: the line end finds no room.
TEST(LineCutter, GivesTheLineEndOfAFullRoomAsAPieceOfItsOwn) {
  expect_fixed<5>(LineEnd::kLineFeed, Excess::kNextPiece, "abc\nabcd\nk",
                  {"abc\n", "abcd", "\n", "k"});
}

// None of the line end needs room.
TEST(LineCutter, FillsItsRoomWithALineWhoseEndIsNotKept) {
  for (const std::string end : {"\n", "\r", "\r\n"}) {
    expect_fixed<5>(LineEnd::kAny, Excess::kNextPiece, "abcd" + end + "efghi" + end,
                    {"abcd", "efgh", "i"});
  }
}

TEST(LineCutter, DropsWhatDoesNotFit) {
  expect_fixed<5>(LineEnd::kAny, Excess::kDropped, "abcdefghij\nabcd\nk", {"abcd", "abcd", "k"});
  expect_fixed<5>(LineEnd::kLineFeed, Excess::kDropped, "abcdefghij\nk\n", {"abcd", "k\n"});
}

TEST(LineCutter, MayHaveItsLineChangedInPlace) {
  LineCutter cutter(LineEnd::kAny);
  std::string_view bytes = "one\ntwo\n";
  ASSERT_EQ(cutter.feed(bytes), LineCutter::Result::kLine);
  cutter.text()[1] = '\0';
  ASSERT_EQ(cutter.feed(bytes), LineCutter::Result::kLine);
  EXPECT_EQ(cutter.line(), "two");
}

TEST(LineCutter, TakesNothingAfterTheLine) {
  LineCutter cutter(LineEnd::kLineFeed);
  std::string_view bytes = "one\ntwo\n";
  ASSERT_EQ(cutter.feed(bytes), LineCutter::Result::kLine);
  EXPECT_EQ(bytes, "two\n");
}

TEST(LineLength, CountsTheLineEnd) {
  EXPECT_EQ(tarvio::line_length("one\ntwo\n", LineEnd::kLineFeed), 4U);
  EXPECT_EQ(tarvio::line_length("one\rtwo\n", LineEnd::kLineFeed), 8U);
  EXPECT_EQ(tarvio::line_length("one\rtwo\n", LineEnd::kEither), 4U);
  EXPECT_EQ(tarvio::line_length("one", LineEnd::kEither), 0U);
}

TEST(TakeLine, TakesTheFirstLineOffWithoutItsLineFeed) {
  std::string_view text = "one\n\nlast";
  Lines lines;
  while (!text.empty()) lines.emplace_back(tarvio::take_line(text));
  EXPECT_THAT(lines, ElementsAre("one", "", "last"));
  EXPECT_THAT(tarvio::take_line(text), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
