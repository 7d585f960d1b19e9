#include "tarvio/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr size_t kLongestLine = 1023;

void log_at(int level, const std::string& message) {
  tq_log_func(level, "area/unit", 7, "%s", message.c_str());
}

std::vector<std::string> texts(const LogCapture& log) {
  std::vector<std::string> lines;
  for (const LogRecord& record : log.records()) lines.push_back(record.text);
  return lines;
}

TEST(Log, KeepsWarningsAndErrorsByDefault) {
  const LogCapture log;
  const StdoutCapture output;
  for (const int level : {TQ_LOG_DEBUG, TQ_LOG_INFO, TQ_LOG_WARNING, TQ_LOG_ERROR}) {
    log_at(level, std::to_string(level));
  }
  const std::vector<LogRecord> records = log.records();
  ASSERT_THAT(records, SizeIs(2U));
  EXPECT_EQ(records[0].priority, LOG_WARNING);
  EXPECT_EQ(records[0].text, "2 -  area/unit 7\n");
  EXPECT_EQ(records[1].priority, LOG_ERR);
  EXPECT_EQ(records[1].text, "3 -  area/unit 7\n");
  EXPECT_EQ(output.text(), "");
}

struct Level {
  int level;
  int priority;
};

void PrintTo(const Level& row, std::ostream* stream) { *stream << row.level; }

class LogLevel : public testing::TestWithParam<Level> {};

TEST_P(LogLevel, HasItsPriority) {
  const LogCapture log(INT_MIN);
  log_at(GetParam().level, "text");
  ASSERT_THAT(log.records(), SizeIs(1U));
  EXPECT_EQ(log.records()[0].priority, GetParam().priority);
}

TEST_P(LogLevel, PassesAThresholdThatIsNotAboveIt) {
  const int level = GetParam().level;
  for (const int threshold : {INT_MIN, -2, -1, 0, 1, 2, 3, 4, 5, 6, INT_MAX}) {
    const LogCapture log(threshold);
    log_at(level, "text");
    EXPECT_THAT(log.records(), SizeIs(threshold <= level ? 1U : 0U)) << "threshold " << threshold;
  }
}

TEST_P(LogLevel, IsPrintedOnlyWhenItIsDebug) {
  const StdoutCapture output;
  const LogCapture log(INT_MIN);
  log_at(GetParam().level, "text");
  EXPECT_EQ(output.text(), GetParam().level == TQ_LOG_DEBUG ? "text -  area/unit 7\n" : "");
}

INSTANTIATE_TEST_SUITE_P(Log, LogLevel,
                         testing::Values(Level{INT_MIN, LOG_DEBUG}, Level{-1, LOG_DEBUG},
                                         Level{0, LOG_DEBUG}, Level{1, LOG_INFO},
                                         Level{2, LOG_WARNING}, Level{3, LOG_ERR},
                                         Level{4, LOG_DEBUG}, Level{5, LOG_DEBUG},
                                         Level{INT_MAX, LOG_DEBUG}));

TEST(Log, PrintsNothingThatIsDropped) {
  const StdoutCapture output;
  const LogCapture log(TQ_LOG_INFO);
  log_at(TQ_LOG_DEBUG, "text");
  EXPECT_THAT(log.records(), IsEmpty());
  EXPECT_EQ(output.text(), "");
}

TEST(Log, IsSilencedByAThresholdAboveError) {
  const LogCapture log(4);
  for (int level = 0; level <= 3; ++level) log_at(level, "text");
  EXPECT_THAT(log.records(), IsEmpty());
}

// Stands in for syslog.
struct Syslog {
  static inline const StdoutCapture* output = nullptr;
  static inline std::string printed_before;
  static inline std::string format;

  static void check_output(int /*priority*/, const char* /*format*/, ...) {
    printed_before = output->text();
  }
  static void keep_format(int /*priority*/, const char* given, ...) { format = given; }
  static void fail(int /*priority*/, const char* /*format*/, ...) { errno = EPIPE; }
};

TEST(Log, PrintsADebugMessageAfterSyslogHasIt) {
  const StdoutCapture output;
  Syslog::output = &output;
  Syslog::printed_before = "syslog was not called";
  tq_set_log_level(TQ_LOG_DEBUG);
  {
    const Hook hook("syslog", &Syslog::check_output);
    log_at(TQ_LOG_DEBUG, "text");
  }
  tq_set_log_level(TQ_LOG_WARNING);
  EXPECT_EQ(Syslog::printed_before, "");
  EXPECT_EQ(output.text(), "text -  area/unit 7\n");
}

TEST(Log, EndsTheMessageWithTwoBlanksUnitAndLine) {
  const LogCapture log;
  tq_log_func(TQ_LOG_ERROR, "util/tq_load_conf", 97, "%d of %s", 3, "all");
  tq_log_func(TQ_LOG_ERROR, "", -1, "text\n");
  ASSERT_THAT(log.records(), SizeIs(2U));
  EXPECT_EQ(log.records()[0].text, "3 of all -  util/tq_load_conf 97\n");
  EXPECT_EQ(log.records()[1].text, "text\n -   -1\n");
}

TEST(Log, WritesPercentSignsOfArgumentsAsTheyAre) {
  const LogCapture log;
  tq_log_func(TQ_LOG_ERROR, "%s%n", 1, "%s", "100%s%n%d%%");
  ASSERT_THAT(log.records(), SizeIs(1U));
  EXPECT_EQ(log.records()[0].text, "100%s%n%d%% -  %s%n 1\n");
}

TEST(Log, PassesTheLineToSyslogAsAnArgument) {
  const Hook hook("syslog", &Syslog::keep_format);
  log_at(TQ_LOG_ERROR, "100%");
  EXPECT_EQ(Syslog::format, "%s");
}

TEST(Log, FormatsAMessageThatIsDroppedToo) {
  const LogCapture log;
  const std::string in_writable_memory = "three%n";  // which libc's checked functions refuse
  int written = -1;
  tq_log_func(TQ_LOG_DEBUG, "area/unit", 7, "four%n", &written);
  EXPECT_EQ(written, 4);
  tq_log_func(TQ_LOG_DEBUG, "area/unit", 7, in_writable_memory.c_str(), &written);
  EXPECT_EQ(written, 5);
  EXPECT_THAT(log.records(), IsEmpty());
}

// Formats with only plain "%s" and "%d" are not formatted by printf.
TEST(Log, WritesWhatPrintfWouldWrite) {
  const LogCapture log;
  const auto check = [&](const auto&... format_and_arguments) {
    char expected[200];
    snprintf(expected, sizeof expected, format_and_arguments...);
    tq_log_func(TQ_LOG_ERROR, "u", 1, format_and_arguments...);
    EXPECT_EQ(log.messages(TQ_LOG_ERROR).back(), expected);
  };
  const char* text = "text";
  const char* no_text = nullptr;
  const void* pointer = &log;
  check("%s", "");
  check("%s%s-%s", text, "", text);
  check("%d", 0);
  check("%d%d %d", INT_MIN, -1, INT_MAX);
  check("a%sb%dc", text, 17);
  check("%s %d", no_text, 5);
  check("%s %p", text, pointer);
  check("%d%%", 100);
  check("%%s %d", 1);
  check("%s %5d|%-6s|%.2s|%02x|%c", text, 42, text, text, 255U, 'c');
  check("%ld %zu %lld", -5L, size_t{6}, 7LL);
  check("%2$s %1$d", 1, text);
}

TEST(Log, WritesAUnitThatIsNullAsPrintfDoes) {
  const LogCapture log;
  tq_log_func(TQ_LOG_ERROR, nullptr, INT_MIN, "text");
  ASSERT_THAT(log.records(), SizeIs(1U));
  EXPECT_EQ(log.records()[0].text, "text -  (null) -2147483648\n");
}

// The end of such a line, " -  area/unit 7\n", has 16 bytes.
constexpr size_t kLongMessages[] = {1006, 1007, 1008, 1010, 1021,   1022,
                                    1023, 1024, 1025, 2047, 1 << 20};

void log_with_precision(int level, const std::string& message) {
  tq_log_func(level, "area/unit", 7, "%.*s", static_cast<int>(message.size()), message.c_str());
}

TEST(Log, CutsALongMessageWithItsEnd) {
  for (const size_t length : kLongMessages) {
    for (const int level : {TQ_LOG_DEBUG, TQ_LOG_ERROR}) {
      for (const auto& log_message : {&log_at, &log_with_precision}) {
        const StdoutCapture output;
        const LogCapture log(TQ_LOG_DEBUG);
        const std::string message = std::string(length - 1, 'x') + "y";
        log_message(level, message);
        const std::string line = (message + " -  area/unit 7\n").substr(0, kLongestLine);
        ASSERT_THAT(log.records(), SizeIs(1U));
        EXPECT_EQ(log.records()[0].text, line);
        EXPECT_EQ(output.text(), level == TQ_LOG_DEBUG ? line : "");
      }
    }
  }
}

TEST(Log, DropsALongMessageUnharmed) {
  const LogCapture log;
  for (const size_t length : kLongMessages) {
    log_at(TQ_LOG_DEBUG, std::string(length, 'x'));
    log_with_precision(TQ_LOG_DEBUG, std::string(length, 'x'));
  }
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST(Log, CutsANumberAtTheEndOfTheLine) {
  const LogCapture log;
  const std::string text(1020, 'x');
  tq_log_func(TQ_LOG_ERROR, "u", 1, "%s%d%s", text.c_str(), -1234567, "never");
  ASSERT_THAT(log.records(), SizeIs(1U));
  EXPECT_EQ(log.records()[0].text, text + "-12");
}

TEST(Log, CutsAnEndThatIsTooLongByItself) {
  const LogCapture log;
  const std::string unit(3000, 'u');
  tq_log_func(TQ_LOG_ERROR, unit.c_str(), 1, "text");
  ASSERT_THAT(log.records(), SizeIs(1U));
  EXPECT_EQ(log.records()[0].text, ("text -  " + unit).substr(0, kLongestLine));
}

TEST(Log, KeepsWhatWasComposedOfAMessageThatCannotBeFormatted) {
  const LogCapture log;
  const wchar_t unprintable[] = {0x110000, 0};
  const std::string unfinished = "%d%";
  tq_log_func(TQ_LOG_ERROR, "area/unit", 7, "before%ls", unprintable);
  tq_log_func(TQ_LOG_ERROR, "area/unit", 7, "%lsafter", unprintable);
  tq_log_func(TQ_LOG_ERROR, "u", 1, unfinished.c_str(), 100);
  EXPECT_THAT(texts(log),
              ElementsAre("before -  area/unit 7\n", " -  area/unit 7\n", "100 -  u 1\n"));
}

TEST(Log, LosesWhatFollowsAZeroInAMessageButNotItsEnd) {
  const LogCapture log;
  tq_log_func(TQ_LOG_ERROR, "u", 1, "before%cafter", 0);
  tq_log_func(TQ_LOG_ERROR, "u", 1, "%c", 0);
  EXPECT_THAT(texts(log), ElementsAre("before -  u 1\n", " -  u 1\n"));
}

TEST(Log, LeavesErrnoAsItWas) {
  const Hook hook("syslog", &Syslog::fail);
  for (const int level : {TQ_LOG_INFO, TQ_LOG_ERROR}) {
    errno = ENOENT;
    log_at(level, "text");
    EXPECT_EQ(errno, ENOENT);
  }
}

TEST(Log, OpensTheSystemLogForUserMessages) {
  int calls = 0;
  Hook hook("openlog", [&](const char* ident, int option, int facility) {
    ++calls;
    EXPECT_STREQ(ident, "tarvio");
    EXPECT_EQ(option, 2);
    EXPECT_EQ(facility, 8);
  });
  tq_log_init();
  EXPECT_EQ(calls, 1);
}

TEST(Log, KeepsTheLinesOfSeveralThreadsApart) {
  constexpr int kMessages = 200;
  const LogCapture log;
  std::vector<std::thread> threads;
  for (const char letter : {'a', 'b', 'c'}) {
    threads.emplace_back([letter] {
      for (int n = 0; n < kMessages; ++n) log_at(TQ_LOG_ERROR, std::string(900, letter));
    });
  }
  threads.emplace_back([] {
    for (int n = 0; n < kMessages; ++n) tq_set_log_level(n % 2);
  });
  for (std::thread& thread : threads) thread.join();
  tq_set_log_level(TQ_LOG_WARNING);

  const std::vector<std::string> messages = log.messages(TQ_LOG_ERROR);
  EXPECT_THAT(messages, SizeIs(3U * kMessages));
  for (const std::string& message : messages) EXPECT_EQ(message, std::string(900, message[0]));
}

}  // namespace
}  // namespace tarvio_test
