// Lines of the system log that applications have written.
#ifndef TARVIO_CLIENT_MANAGER_LOG_LINES_H
#define TARVIO_CLIENT_MANAGER_LOG_LINES_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/line_cutter.h"
#include "base/owners.h"

namespace client {

// Who wrote a line: "NAME:" or "NAME[PID]:".
struct Ident {
  std::string_view name;
  std::optional<int32_t> pid;
};

// Of a line as BusyBox, rsyslog or journalctl writes it; none for another one.
std::optional<Ident> ident_of(std::string_view line);

using LineSink = std::function<void(std::string_view line)>;

// Gives each line that the bytes complete, without its line feed.
void cut_lines(tarvio::LineCutter& cutter, std::string_view bytes, const LineSink& sink);

// A log file that grows and is rotated.
class LogFile {
 public:
  explicit LogFile(std::string path) : path_(std::move(path)) {}

  // Gives each line that was completed since the last call. False, with errno, when there is no
  // such file, or it cannot be read.
  [[nodiscard]] bool read_new(const LineSink& sink);

 private:
  bool open_file();
  bool read_rest(const LineSink& sink);
  [[nodiscard]] bool is_replaced() const;
  bool rewind_if_truncated();

  std::string path_;
  tarvio::Fd file_;
  tarvio::LineCutter cutter_{tarvio::LineEnd::kLineFeed};
};

}  // namespace client

#endif
