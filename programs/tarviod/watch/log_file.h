// The system log as a file.
#ifndef TARVIOD_LOG_FILE_H
#define TARVIOD_LOG_FILE_H

#include <stddef.h>
#include <sys/stat.h>

#include <array>
#include <string_view>

#include "base/line_cutter.h"
#include "log_report.h"
#include "log_reporter.h"
#include "runtime/log_form.h"

namespace tarviod {

class LogFile {
 public:
  LogFile(const char* path, runtime::LogFormat format, LogReporter& reporter);

  // Reports what is new in the log, and once, until the log can be read again, why it cannot.
  void look();

 private:
  static constexpr size_t kReadBytes = 16UL * 1024;

  const char* read_log();
  void find_position(int log, const struct stat& info);
  bool is_in_place(int log, const LogLine& line);
  bool read_to(int log, uint64_t end);
  void cut_lines(std::string_view bytes);

  const char* path_;
  runtime::LogFormat format_;
  LogReporter& reporter_;
  LogPosition& position_;
  char line_[kMaxLineBytes + 1];
  tarvio::LineCutter lines_{tarvio::LineEnd::kLineFeed, line_, tarvio::Excess::kDropped};
  std::array<char, kReadBytes> room_;
};

}  // namespace tarviod

#endif
