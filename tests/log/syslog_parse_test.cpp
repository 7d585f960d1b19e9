// Parsing lines of the system log.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/live_allocations.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "support/programs/syslog_lines.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/log_monitor.h"

namespace tarvio_test {
namespace {

constexpr char kUnit[] = "log/tq_syslog_binding";

// A text that ends with its page: a read past its end crashes.
class GuardedText {
 public:
  explicit GuardedText(std::string_view text)
      : size_((text.size() / page() + 1) * page()),
        pages_(static_cast<char*>(::mmap(nullptr, size_ + page(), PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
        text_(pages_ + size_ - text.size() - 1) {
    ::mprotect(pages_ + size_, page(), PROT_NONE);
    std::memcpy(text_, text.data(), text.size());
    text_[text.size()] = '\0';
  }
  ~GuardedText() { ::munmap(pages_, size_ + page()); }
  GuardedText(const GuardedText&) = delete;
  GuardedText& operator=(const GuardedText&) = delete;

  const char* get() const { return text_; }

 private:
  static size_t page() { return static_cast<size_t>(::sysconf(_SC_PAGESIZE)); }

  size_t size_;
  char* pages_;
  char* text_;
};

void release(tq_syslog_line* line) {
  if (line == nullptr) return;
  std::free(line->ident);
  std::free(line->message);
  std::free(line);
}

void expect_parsed(const char* text, int level, const std::string& ident,
                   const std::string& message) {
  const GuardedText guarded(text);
  tq_syslog_line* line = tq_parse_syslog(guarded.get());
  ASSERT_NE(line, nullptr) << text;
  EXPECT_EQ(line->level, level) << text;
  EXPECT_EQ(line->ident, ident) << text;
  EXPECT_EQ(line->message, message) << text;
  EXPECT_STREQ(guarded.get(), text);
  release(line);
}

TEST(SyslogParse, TakesLinesApart) {
  for (const auto& [text, level, ident, message] : kParsedLines)
    expect_parsed(text, level, ident, message);
}

TEST(SyslogParse, GivesNullForLinesThatLackSomething) {
  for (const char* text : kUnparseableLines) {
    const GuardedText guarded(text);
    EXPECT_EQ(tq_parse_syslog(guarded.get()), nullptr) << text;
  }
}

TEST(SyslogParse, TakesTextsOfAnyLength) {
  const std::string long_text(100'000, 'x');
  const std::string begin = "Jan  1 00:00:12 board user.err ";
  expect_parsed((begin + long_text + ":" + long_text + "\n").c_str(), 2, long_text, long_text);
}

TEST(SyslogParse, TakesAnyBytes) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte)
    if (byte != '\n' && byte != ':') bytes += static_cast<char>(byte);
  const std::string begin = "Jan  1 00:00:12 board user.err ";
  expect_parsed((begin + bytes + ":" + bytes + "\n").c_str(), 2, bytes, bytes);
}

// Every place where a line can end.
TEST(SyslogParse, ReadsNothingAfterALineThatIsCutShort) {
  const std::string_view line = "Jan  1 00:00:12 board user.info clock[12]: started\n";
  const size_t message = line.find(": s") + 1;
  for (size_t length = 0; length <= line.size(); ++length) {
    const GuardedText guarded(line.substr(0, length));
    tq_syslog_line* parsed = tq_parse_syslog(guarded.get());
    EXPECT_EQ(parsed != nullptr, length > message) << guarded.get();
    release(parsed);
  }
}

TEST(SyslogParse, GivesNullForANullLine) { EXPECT_EQ(tq_parse_syslog(nullptr), nullptr); }

TEST(SyslogParse, GivesNullAndLosesNothingWhenMemoryRunsOut) {
  const char* text = "Jan  1 00:00:12 board user.info clock[12]: started\n";
  for (int n = 1;; ++n) {
    const FailAlloc fail(n);
    tq_syslog_line* line = tq_parse_syslog(text);
    if (!fail.happened()) {
      EXPECT_EQ(n, 5);  // the line to split, the record, ident and message
      release(line);
      break;
    }
    EXPECT_EQ(line, nullptr) << n;
  }
}

TEST(SyslogParse, AllocatesTheRecordAndItsStrings) {
  const LiveAllocations live;
  tq_syslog_line* line = tq_parse_syslog("Jan  1 00:00:12 board user.info clock[12]: started\n");
  EXPECT_EQ(live.count(), 3);
  release(line);
}

struct Logged {
  const char* line;
  std::vector<std::string> messages;
};

TEST(SyslogParse, LogsWhatItReads) {
  const std::vector<Logged> rows = {
      {"Jan  1 00:00:12 board user.warn clock[12]: started\n",
       {"debug: mon Jan\n", "debug: read log clock[12][1] ;  started\n"}},
      {"J 1 0:0:0 board x a:%s", {"debug: mon J\n", "debug: read log a[-1] ; %s\n"}},
      {"Jan  1 00:00:12 board -- MARK --\n",
       {"debug: mon Jan\n", "debug: this is -- MARK -- line\n"}},
      {"Jan  1 00:00:12 board user.info clock\n", {"debug: mon Jan\n"}},
      {"Feb", {"debug: mon Feb\n"}},
      {"Xyz  1 00:00:12 board user.info clock: x\n", {"debug: this line is not parseable\n"}},
      {"", {"debug: this line is not parseable\n"}},
  };
  const StdoutCapture out;
  for (const Logged& row : rows) {
    const LogCapture log(TQ_LOG_DEBUG);
    release(tq_parse_syslog(row.line));
    EXPECT_EQ(unit_messages(log, kUnit), row.messages) << row.line;
  }
}

TEST(SyslogMonth, IsFoundByItsName) {
  const char* names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (int month = 0; month < 12; ++month) {
    EXPECT_EQ(tq_get_month(names[month]), month);
    EXPECT_EQ(tq_get_month((std::string(names[month]) + "uary").c_str()), month);
  }
}

struct Month {
  const char* text;
  int month;
};

TEST(SyslogMonth, IsTheFirstThatBeginsLikeTheText) {
  for (const auto& [text, month] : std::initializer_list<Month>{{"", 0},
                                                                {"J", 0},
                                                                {"F", 1},
                                                                {"M", 2},
                                                                {"A", 3},
                                                                {"S", 8},
                                                                {"O", 9},
                                                                {"N", 10},
                                                                {"D", 11},
                                                                {"Ja", 0},
                                                                {"Ju", 5},
                                                                {"Ma", 2},
                                                                {"Ap", 3},
                                                                {"Au", 7}})
    EXPECT_EQ(tq_get_month(text), month) << text;
}

TEST(SyslogMonth, IsNoneForAllElse) {
  for (const char* text : {"jan", "JAN", "Jam", "x", " ", " Jan", "1", "anu", "\n"})
    EXPECT_EQ(tq_get_month(text), -1) << text;
  EXPECT_EQ(tq_get_month(nullptr), -1);
}

}  // namespace
}  // namespace tarvio_test
