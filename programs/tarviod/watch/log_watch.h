// The manager's side of watching the log: the log reader, and what it reports.
#ifndef TARVIOD_LOG_WATCH_H
#define TARVIOD_LOG_WATCH_H

#include "base/deadline.h"
#include "base/owners.h"
#include "log_report.h"
#include "runtime/config.h"

namespace tarviod {

class LogWatch {
 public:
  // Watches as configured: from the present end of the log, or from where reading stopped if that
  // log was watched before.
  void start(runtime::Config config);

  [[nodiscard]] const runtime::Config& config() const { return config_; }

  // Waits until the present end of the log is known, at most a few seconds.
  void wait_for_begin();

  // Ends the reader.
  void stop();

  // Becomes readable when the reader has reported something, or is gone; -1 when there is none.
  [[nodiscard]] int report_fd() const { return report_.get(); }
  void handle_report();

  // When a new reader is to be started; never while there is one.
  [[nodiscard]] const tarvio::Deadline& reader_due() const { return reader_due_; }
  void start_reader();

 private:
  void retry_after_period();

  runtime::Config config_;
  LogPosition position_ = {};
  tarvio::Fd report_;
  tarvio::Deadline reader_due_ = tarvio::Deadline::never();
};

}  // namespace tarviod

#endif
