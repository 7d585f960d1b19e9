// What the client makes of text: safe for a terminal, in tables, as words and as JSON.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "process/text_pieces.h"
#include "terminal/json.h"
#include "terminal/printable_text.h"
#include "terminal/text_table.h"
#include "terminal/words.h"

namespace client {
namespace {

using nlohmann::json;
using namespace std::string_literals;

struct Shown {
  std::string text;
  std::string shown;
};

TEST(ClientText, ShowsWhatCouldDriveATerminalByteByByte) {
  const std::vector<Shown> cases = {
      {"plain text, 100 %", "plain text, 100 %"},
      {"", ""},
      {"\x1b[31mred", "\\x1b[31mred"},
      {"a\nb\tc\rd", "a\\x0ab\\x09c\\x0dd"},
      {"nul\0"s, "nul\\x00"},
      {"\x7f", "\\x7f"},
      {"\u009b31m", "\\xc2\\x9b31m"},       // a control sequence in one character
      {"\u202etxt", "\\xe2\\x80\\xaetxt"},  // turns the direction of writing
      {"a\u200bb", "a\\xe2\\x80\\x8bb"},    // takes no room
      {"Ärger 日本 €", "Ärger 日本 €"},
      {"\U0001F600", "\U0001F600"},
  };
  for (const Shown& each : cases) EXPECT_EQ(printable(each.text), each.shown);
}

TEST(ClientText, ShowsBytesThatAreNotUtf8) {
  const std::vector<Shown> cases = {
      {"a\xff z", "a\\xff z"},
      {"\xc3", "\\xc3"},                             // cut
      {"\xe2\x82", "\\xe2\\x82"},                    // cut
      {"\xc3(", "\\xc3("},                           // not continued
      {"\x80", "\\x80"},                             // a continuation of nothing
      {"\xc0\xaf", "\\xc0\\xaf"},                    // longer than need be
      {"\xe0\x80\xaf", "\\xe0\\x80\\xaf"},           // longer than need be
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},           // a surrogate
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond the last character
      {"\xf8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
  };
  for (const Shown& each : cases) EXPECT_EQ(printable(each.text), each.shown);
}

TEST(ClientText, CountsTheColumnsOfATerminal) {
  EXPECT_EQ(display_width(""), 0U);
  EXPECT_EQ(display_width("clock"), 5U);
  EXPECT_EQ(display_width("Ärger"), 5U);
  EXPECT_EQ(display_width("A\u0308rger"), 5U);  // the dots are a mark of their own
  EXPECT_EQ(display_width("日本"), 4U);
  EXPECT_EQ(display_width("ｗ"), 2U);
  EXPECT_EQ(display_width("\U0001F600"), 2U);
}

TEST(ClientText, HasLines) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(lines_of(""), Lines());
  EXPECT_EQ(lines_of("\n"), Lines{""});
  EXPECT_EQ(lines_of("a\n\nb"), (Lines{"a", "", "b"}));
}

TEST(ClientText, NamesSizesForPeople) {
  EXPECT_EQ(size_words(0), "0 bytes");
  EXPECT_EQ(size_words(1), "1 byte");
  EXPECT_EQ(size_words(1023), "1023 bytes");
  EXPECT_EQ(size_words(1024), "1.0 KiB");
  EXPECT_EQ(size_words(1536), "1.5 KiB");
  EXPECT_EQ(size_words((1 << 20) - 1), "1.0 MiB");
  EXPECT_EQ(size_words(uint64_t{3} << 30), "3.0 GiB");
  EXPECT_EQ(size_words(uint64_t{5000} << 40), "5000.0 TiB");
}

TEST(ClientText, IsShortenedToColumns) {
  EXPECT_EQ(shortened("clock", 5), "clock");
  EXPECT_EQ(shortened("clocks", 5), "cl...");
  EXPECT_EQ(shortened("日本語", 6), "日本語");
  EXPECT_EQ(shortened("日本語", 5), "日...");
  EXPECT_EQ(shortened("日本語", 4), "...");
  EXPECT_EQ(shortened("clocks", 2), "..");
  EXPECT_EQ(shortened("clocks", 0), "");
}

TEST(ClientTable, AlignsItsColumns) {
  EXPECT_EQ(
      render_table({{{"NAME"}, {"STATE"}}, {{"a"}, {"normal"}}, {{"longer"}, {"error"}}}, false),
      "NAME    STATE\n"
      "a       normal\n"
      "longer  error\n");
}

TEST(ClientTable, AlignsCharactersOfEveryWidth) {
  EXPECT_EQ(render_table({{{"日本"}, {"x"}}, {{"Ärger"}, {"x"}}, {{"ab"}, {"x"}}}, false),
            "日本   x\n"
            "Ärger  x\n"
            "ab     x\n");
}

TEST(ClientTable, LeavesNoBlanksAtTheEndOfALine) {
  EXPECT_EQ(
      render_table({{{"NAME"}, {"DETAIL"}}, {{"clock"}, {""}}, {{""}, {"x"}}, {{""}, {""}}}, false),
      "NAME   DETAIL\n"
      "clock\n"
      "       x\n"
      "\n");
}

TEST(ClientTable, CutsItsWidestColumnsToFit) {
  const std::vector<Row> rows = {{{"NAME"}, {"STATE"}, {"DETAIL"}},
                                 {{"application"}, {"normal", Colour::kGreen}, {"started app"}}};
  EXPECT_EQ(render_table(rows, false, 32), render_table(rows, false));
  EXPECT_EQ(render_table(rows, true, 26),
            "NAME      STATE   DETAIL\n"
            "appli...  \x1b[32mnormal\x1b[0m  start...\n");
  EXPECT_EQ(render_table(rows, false, 2), ".  .  .\n.  .  .\n");
}

TEST(ClientTable, KeepsARowOnOneLine) {
  EXPECT_EQ(render_table({{{"a\nb"}, {"\x1b[2J"}}}, false), "a\\x0ab  \\x1b[2J\n");
}

TEST(ClientTable, ColoursTextAndNotTheBlanksAroundIt) {
  EXPECT_EQ(render_table({{{"A", Colour::kBold}, {"B"}},
                          {{"long", Colour::kGreen}, {"x", Colour::kYellow}},
                          {{"y", Colour::kRed}, {"", Colour::kRed}}},
                         true),
            "\x1b[1mA\x1b[0m     B\n"
            "\x1b[32mlong\x1b[0m  \x1b[33mx\x1b[0m\n"
            "\x1b[31my\x1b[0m\n");
}

TEST(ClientTable, HasNoColoursWhereNoneAreWanted) {
  EXPECT_EQ(render_table({{{"A", Colour::kBold}, {"B", Colour::kRed}}}, false), "A  B\n");
}

TEST(ClientWords, NamesStatesAndCodes) {
  EXPECT_EQ(state_word(0), "normal");
  EXPECT_EQ(state_word(1), "warning");
  EXPECT_EQ(state_word(2), "error");
  EXPECT_EQ(state_word(-7), "-7");
  EXPECT_EQ(category_word(0), "image");
  EXPECT_EQ(category_word(1), "application");
  EXPECT_EQ(category_word(2), "other");
  EXPECT_EQ(category_word(3), "3");
  EXPECT_EQ(subcategory_word(0), "native");
  EXPECT_EQ(subcategory_word(1), "java");
  EXPECT_EQ(subcategory_word(2), "browser");
  EXPECT_EQ(subcategory_word(3), "jsp");
  EXPECT_EQ(subcategory_word(4), "other");
}

TEST(ClientWords, AcceptsWordsInAnyCaseAndCodes) {
  EXPECT_EQ(category_code("image"), 0U);
  EXPECT_EQ(category_code("Application"), 1U);
  EXPECT_EQ(category_code("OTHER"), 2U);
  EXPECT_EQ(category_code("1"), 1U);
  EXPECT_EQ(subcategory_code("Native"), 0U);
  EXPECT_EQ(subcategory_code("jsp"), 3U);
  EXPECT_EQ(subcategory_code("4"), 4U);
}

TEST(ClientWords, AcceptsNothingElse) {
  for (const char* word : {"", "imag", "images", " image", "-1", "3", "01", "100", "1x"}) {
    EXPECT_EQ(category_code(word), std::nullopt) << word;
  }
  for (const char* word : {"", "image", "5", "151"}) {
    EXPECT_EQ(subcategory_code(word), std::nullopt) << word;
  }
}

TEST(ClientWords, NamesWhatAResultMeans) {
  EXPECT_EQ(result_words(13), "Permission denied");
  EXPECT_EQ(result_words(10101), "_Tarvio status utility memory allocation failed.");
  EXPECT_EQ(result_words(10304), "unknown error");  // the library has no text for it
}

TEST(ClientJson, KeepsWhatItIsGiven) {
  const Json given = {{"name", "clock"}, {"state_code", 2}, {"detail", "a \"b\"\n\x1b\\"}};
  EXPECT_EQ(Json::parse(text_of(given)), given);
  EXPECT_EQ(Json::parse(line_of(given)), given);
}

TEST(ClientJson, IsValidAndHarmlessWhateverTheBytesAre) {
  const std::string text = text_of({{"name", "a\xff\xc3"}, {"detail", "Ä \u009b31m"}});
  for (const char byte : text) EXPECT_TRUE(byte == '\n' || (byte >= ' ' && byte < '\x7f'));
  const json parsed = json::parse(text);
  EXPECT_EQ(parsed["name"], "a\ufffd\ufffd");
  EXPECT_EQ(parsed["detail"], "Ä \u009b31m");
}

TEST(ClientJson, IsIndentedOrOneLine) {
  const Json given = {{"name", "web"}, {"state", or_null("")}, {"detail", or_null("bad")}};
  EXPECT_EQ(text_of(given),
            "{\n  \"name\": \"web\",\n  \"state\": null,\n  \"detail\": \"bad\"\n}\n");
  EXPECT_EQ(line_of(given), "{\"name\":\"web\",\"state\":null,\"detail\":\"bad\"}\n");
  EXPECT_EQ(text_of(Json::array()), "[]\n");
}

}  // namespace
}  // namespace client
