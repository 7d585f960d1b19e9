// Keeps what the library gives to syslog, instead of the system log.
//
//   LogCapture log;
//   tq_status_add(...);
//   EXPECT_THAT(log.messages(TQ_LOG_ERROR), ElementsAre("..."));
//   EXPECT_TRUE(log.contains(TQ_LOG_WARNING, "status/tq_status_manager", "..."));
#ifndef TARVIO_TESTS_SUPPORT_HOOKS_LOG_CAPTURE_H
#define TARVIO_TESTS_SUPPORT_HOOKS_LOG_CAPTURE_H

#include <gtest/gtest.h>

#include <iosfwd>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/hooks/got_hook.h"

namespace tarvio_test {

struct LogRecord {
  int priority = 0;     // as syslog got it
  std::string text;     // the whole line, its line feed included
  std::string message;  // the part before " -  UNIT LINE\n"
  std::string unit;     // empty when the text has no such end
  int line = 0;
};

// One at a time in a process.
class LogCapture {
 public:
  // Leaves the library's threshold alone.
  LogCapture();
  // Sets the threshold, and gives it its value of load time back at the end.
  explicit LogCapture(int threshold);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogRecord> records() const;
  // The messages of one of the library's levels (0 debug to 3 error), in order.
  std::vector<std::string> messages(int level) const;
  // On failure says what was logged instead.
  testing::AssertionResult contains(int level, const std::string& unit,
                                    const std::string& message) const;
  void clear();
  void add(int priority, std::string text);

 private:
  mutable std::mutex mutex_;
  std::vector<LogRecord> records_;
  bool restores_threshold_ = false;
  std::optional<ImportPatch> syslog_;
};

std::ostream& operator<<(std::ostream& stream, const LogRecord& record);

}  // namespace tarvio_test

#endif
