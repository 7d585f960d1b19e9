// The manager's side of watching the log: the log reader, and what it tells.
#ifndef TARVIOD_LOG_WATCH_H
#define TARVIOD_LOG_WATCH_H

#include <stdint.h>

#include "config.h"
#include "log_report.h"

namespace tarviod {

class LogMonitor {
 public:
  explicit LogMonitor(int log_level) : log_level_(log_level) {}
  LogMonitor(const LogMonitor&) = delete;
  LogMonitor& operator=(const LogMonitor&) = delete;
  ~LogMonitor() { stop(); }

  // Watches as a configuration says, from the present end of the log on, or from where it is read
  // to when that log was watched before.
  void start(Config config);

  // Waits until the present end of the log is known, or for some seconds.
  void wait_for_begin();

  // Ends the reader.
  void stop();

  // Becomes readable when the reader has told something, or is gone; -1 when there is none.
  [[nodiscard]] int report_fd() const { return report_fd_; }
  void take_report();

  // When a new reader is to be started; -1 when none is.
  [[nodiscard]] int64_t due_ms() const { return due_ms_; }
  void start_reader();

 private:
  void reader_is_gone();

  int log_level_;
  Config config_;
  LogPosition position_ = {};
  int report_fd_ = -1;
  int64_t due_ms_ = -1;
  bool reader_is_done_ = false;
};

}  // namespace tarviod

#endif
