// A tarviod that watches the system log, and the log that it watches. Its period is a few
// milliseconds.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_WATCHED_LOG_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_WATCHED_LOG_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/com/sockets.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {

inline constexpr char kConfigFile[] = "/etc/tarvio/tarviod.conf";
inline constexpr char kLogFile[] = "/var/log/messages";

// "Jan  1 00:00:00 board user.err clock[1]: text\n"
std::string log_line(const std::string& level, const std::string& text,
                     const std::string& ident = "clock[1]");

void append_to_log(std::string_view text);

// The process that reads the log for a manager; -1 when there is none.
pid_t reader_of(const Tarviod& manager);

// What happens to a file from now on.
class FileEvents {
 public:
  explicit FileEvents(const char* file = kLogFile);

  // Waits for the next event, IN_OPEN, IN_ACCESS or IN_CLOSE_NOWRITE.
  uint32_t next();
  // Passes over others; an event that never comes fails the test.
  void wait_for(uint32_t event);

 private:
  const Socket inotify_;
};

// Waits for a look at a log that begins after the call.
void wait_for_look(const char* log = kLogFile);

// Waits until a manager has a reader that is not the given one, and a log was looked at.
pid_t next_reader(const Tarviod& manager, pid_t before, const char* log = kLogFile);

class WatchedLog : public testing::Test {
 protected:
  // Lines of the ident clock change the status of the application clock, unless a test configures
  // something else.
  WatchedLog();

  // Starts the manager on the log as it is.
  void start(
      const std::vector<std::string>& arguments = {}, const std::function<void()>& prepare = [] {});
  Tarviod& manager() { return *manager_; }

  // Waits for the status of an application, such as "2\nfull\n".
  testing::AssertionResult becomes(const std::string& status,
                                   const std::string& application = "clock");
  // Appends one more line, and waits until it has counted, and with it all lines before.
  testing::AssertionResult catches_up();
  // How many lines have counted, without those of catches_up. Each of them set a status, or met an
  // error that stays.
  long counted();

 private:
  std::unique_ptr<Tarviod> manager_;
  int marks_ = 0;
};

}  // namespace tarvio_test

#endif
