// The forms that lines of the system log may have, and what a line of each says.
#include "runtime/log_form.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "support/files.h"
#include "tarvio/log_monitor.h"
#include "watch/journal_entry.h"

namespace tarvio_test {
namespace {

using runtime::LineKind;
using runtime::LogFormat;
using runtime::UsualLine;
using testing::ElementsAre;
using testing::ElementsAreArray;

// "2 webapp[12]: disk full", with a question mark for a line without a level; else what it is.
std::string described(const UsualLine& line) {
  if (line.kind() == LineKind::kOther) return "other";
  if (line.kind() == LineKind::kOutput) return "output";
  tq_syslog_line* parsed = tq_parse_syslog(line.text());
  if (parsed == nullptr) return "nothing";
  const std::string level =
      line.kind() == LineKind::kWithoutLevel ? "?" : std::to_string(parsed->level);
  const std::string text = level + " " + parsed->ident + ":" + parsed->message;
  std::free(parsed->ident);
  std::free(parsed->message);
  std::free(parsed);
  return text;
}

std::string described(LogFormat format, const std::string& line) {
  return described(UsualLine(format, line.c_str()));
}

std::vector<std::string> recorded(const std::string& name) {
  std::vector<std::string> lines;
  const std::string text = read_file(TARVIO_RECORDED_LOGS "/" + name);
  for (size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
    end = text.find('\n', begin);
    lines.push_back(text.substr(begin, end - begin));
  }
  return lines;
}

struct Recorded {
  const char* name;
  LogFormat format;
  const char* file;
  std::vector<std::string> lines;
};
std::ostream& operator<<(std::ostream& stream, const Recorded& each) { return stream << each.name; }

class RecordedLog : public testing::TestWithParam<Recorded> {};

TEST_P(RecordedLog, IsRead) {
  for (const LogFormat format : {GetParam().format, LogFormat::kAuto}) {
    std::vector<std::string> lines;
    for (const std::string& line : recorded(GetParam().file))
      lines.push_back(described(format, line));
    EXPECT_EQ(lines, GetParam().lines);
  }
}

// No form but BusyBox's and the protocol's says what an application printed.
const std::vector<std::string> kWithoutLevel = {
    "? webapp[12]: GET / 200",
    "? webapp[12]: an error that it prints",
    "? kernel: [   12.345678] nand: bad block 7",
    "? /usr/bin/radio.sh[7]: no route: eth0",
    "other",
    "? webapp: started",
    "? webapp[12]: disk almost full: 95 %",
    "? webapp[12]: ",
    "? webapp[12]: caf\xc3\xa9 #033[31mred#033[0m tab#011here",
    "? webapp[12]: disk full",
    "? webapp[12]: emergency",
};

INSTANTIATE_TEST_SUITE_P(
    LogForm, RecordedLog,
    testing::Values(
        Recorded{
            "Busybox",
            LogFormat::kBusybox,
            "busybox-1.35.0.txt",
            {"0 syslogd started: BusyBox v1.35.0", "output", "output",
             "2 kernel: [   12.345678] nand: bad block 7", "2 /usr/bin/radio.sh[7]: no route: eth0",
             "nothing", "0 webapp: started", "1 webapp[12]: disk almost full: 95 %",
             "0 webapp[12]: ", "1 webapp[12]:caf\xc3\xa9 ^[[31mred^[[0m tab\there",
             "2 webapp[12]: disk full", "2 webapp[12]: emergency", "nothing"}},
        Recorded{"Template",
                 LogFormat::kBusybox,
                 "rsyslog-8.2302.0-template.txt",
                 {"output", "output", "2 kernel: [   12.345678] nand: bad block 7",
                  "2 /usr/bin/radio.sh[7]: no route: eth0", "nothing", "0 webapp: started",
                  "1 webapp[12]: disk almost full: 95 %",
                  "0 webapp[12]: ", "1 webapp[12]:caf\xc3\xa9 #033[31mred#033[0m tab#011here",
                  "2 webapp[12]: disk full", "2 webapp[12]: emergency"}},
        Recorded{"Traditional", LogFormat::kTraditional, "rsyslog-8.2302.0-traditional.txt",
                 kWithoutLevel},
        Recorded{"Iso", LogFormat::kIso, "rsyslog-8.2302.0-iso.txt", kWithoutLevel},
        // rsyslog cuts the program's name at the first slash, and its text at the first blank.
        Recorded{"Rfc5424",
                 LogFormat::kRfc5424,
                 "rsyslog-8.2302.0-rfc5424.txt",
                 {"output", "output", "2 kernel: [   12.345678] nand: bad block 7",
                  "2 -[7]: no route: eth0", "2 no: tag here", "0 webapp: started",
                  "1 webapp[12]: disk almost full: 95 %",
                  "0 webapp[12]: ", "1 webapp[12]: #033[31mred#033[0m tab#011here",
                  "2 webapp[12]: disk full", "2 webapp[12]: emergency"}}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(LogForm, IsNotThatOfOtherLines) {
  const std::string iso = "2026-01-12T00:00:12Z board ";
  for (const std::string& line : {std::string(),
                                  std::string("\n"),
                                  std::string("clock: x"),
                                  std::string("J"),
                                  std::string("Jan 12 board clock[1]: x"),
                                  std::string("Jan 12 00:00:12"),
                                  std::string("Jan 12 00:00:12 board"),
                                  std::string("Jan 12 00:00:12 board : x"),
                                  std::string("2026-01-12 00:00:12 board clock: x"),
                                  std::string("2026"),
                                  iso + "x",
                                  iso,
                                  std::string("<11>Jan 12 00:00:12 board clock: x"),
                                  std::string("<>1 x"),
                                  std::string("<11"),
                                  "<11>1 " + iso,
                                  "<11>1 " + iso + "clock 1 -",
                                  "<11>1 " + iso + "clock 1 - [a",
                                  "<11>1 " + iso + "clock 1 - [a b=\"]",
                                  "<11>1 " + iso + "clock 1 - x disk full"}) {
    EXPECT_EQ(described(LogFormat::kAuto, line), "other") << line;
  }
}

TEST(LogForm, IsTakenAsConfigured) {
  const std::string busybox = "Jan 12 00:00:12 board user.err clock[1]: x: y";
  EXPECT_EQ(described(LogFormat::kAuto, busybox), "2 clock[1]: x: y");
  EXPECT_EQ(described(LogFormat::kTraditional, busybox), "? user.err clock[1]: x: y");
  EXPECT_EQ(described(LogFormat::kIso, busybox), "other");
  EXPECT_EQ(described(LogFormat::kRfc5424, busybox), "other");
  EXPECT_EQ(described(LogFormat::kBusybox, "Jan 12 00:00:12 board clock[1]: x: y"), "other");
}

TEST(Rfc5424, MayHaveStructuredDataAndAByteOrderMark) {
  const std::string begin = "<11>1 2026-01-12T00:00:12Z board clock 1 id ";
  for (const char* rest : {"- x", "[a] x", "[a b=\"c\"] x",
                           "[a b=\"]\" c=\"\\\"]\"][d@1 e=\"f g\"] x", "-  x", "- \xef\xbb\xbfx"}) {
    EXPECT_EQ(described(LogFormat::kAuto, begin + rest), "2 clock[1]: x") << rest;
  }
  EXPECT_EQ(described(LogFormat::kAuto, begin + "-"), "2 clock[1]: ");
}

TEST(LogForm, HasRoomForLongTexts) {
  const std::string name(2000, 'x');
  EXPECT_EQ(described(UsualLine({.priority = 11, .ident = name, .text = "y"})), "nothing");
  const std::string line = described(UsualLine({.priority = 11, .ident = "clock", .text = name}));
  EXPECT_GT(line.size(), 900);
  EXPECT_EQ(line, "2 clock: " + name.substr(0, line.size() - 9));
}

std::string described_entry(std::string line) {
  tarviod::JournalEntry entry;
  if (!tarviod::parse_entry(line.data(), entry)) return "damaged";
  return described(UsualLine(entry.message));
}

TEST(JournalEntry, SaysWhatAMessageSays) {
  std::vector<std::string> lines;
  for (const std::string& line : recorded("journalctl-252.json"))
    lines.push_back(described_entry(line));
  EXPECT_THAT(
      lines,
      ElementsAre("0 systemd[1]: Started webapp.", "2 webapp[12]: disk full",
                  "1 webapp[12]: quotes \"x\" back\\slash caf\xc3\xa9 \xe2\x82\xac "
                  "\xf0\x9f\x98\x80",
                  "2 webapp[12]: \x1b[31mred\x1b[0m", "2 webapp[12]: two lines and a tab", "output",
                  "2 webapp[12]: ",  // a message of 5,000 bytes is left out
                  "1 webapp[13]: no identifier", "? webapp[13]: no priority", "2 webapp[13]: first",
                  "2 webapp[12]: latin \xe9 bytes", "2 webapp[12]: "));
}

TEST(JournalEntry, HasACursor) {
  std::string line = recorded("journalctl-252.json").front();
  tarviod::JournalEntry entry;
  ASSERT_TRUE(tarviod::parse_entry(line.data(), entry));
  EXPECT_EQ(entry.cursor,
            "s=e19f810eed104ed59586c7be73e26655;i=1;b=0123456789abcdef0123456789abcdef;m=c65d40;"
            "t=648258f27bd40;x=852787008b979fb");
  EXPECT_EQ(described_entry("{\"MESSAGE\":\"x\",\"SYSLOG_IDENTIFIER\":\"y\"}"), "damaged");
}

TEST(JournalEntry, MayHaveBlanksEscapesAndManyValues) {
  const std::string begin = R"( { "__CURSOR" : "c" , "PRIORITY":"3","SYSLOG_IDENTIFIER":"y",)";
  EXPECT_EQ(described_entry(begin + R"("MESSAGE" : "a\u001bb\tc\/d\u00e9e" } )"), "2 y: a b c/d e");
  EXPECT_EQ(described_entry(begin + R"("MESSAGE":[ 97 , 98 ]})"), "2 y: ab");
  EXPECT_EQ(described_entry(begin + R"("MESSAGE":["a" , "b"]})"), "2 y: a");
  EXPECT_EQ(described_entry(begin + R"("MESSAGE":null,"OTHER":17})"), "2 y: ");
}

TEST(JournalEntry, IsRefusedWhenItIsCutAnywhere) {
  for (const std::string& line : recorded("journalctl-252.json")) {
    for (size_t length = 0; length < line.size(); ++length)
      EXPECT_EQ(described_entry(line.substr(0, length)), "damaged") << line.substr(0, length);
  }
  for (const char* line : {"[]", "{}", "null", "{\"__CURSOR\":\"c\"", "{\"__CURSOR\":\"c\\",
                           "{\"__CURSOR\":\"c\\u12", "{\"__CURSOR\":[99", "{\"__CURSOR\":[\"c\""}) {
    EXPECT_EQ(described_entry(line), "damaged") << line;
  }
}

}  // namespace
}  // namespace tarvio_test
