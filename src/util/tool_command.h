// What the wrappers of the archive and flash tools have in common: a command line that must fit,
// run under the shell, and judged by what it prints (oddity 9).
#ifndef TARVIO_SRC_UTIL_TOOL_COMMAND_H
#define TARVIO_SRC_UTIL_TOOL_COMMAND_H

#include <stddef.h>

#include <array>
#include <string_view>

#include "util/log_macros.h"

namespace tarvio {

class ToolCommand {
 public:
  static constexpr size_t kMaxLength = 255;  // characters (oddity 127)

  [[gnu::format(printf, 2, 3)]] explicit ToolCommand(const char* format, ...);

  void append(std::string_view piece);

  [[nodiscard]] const char* text() const { return text_.data(); }
  [[nodiscard]] bool fits() const { return length_ < text_.size(); }
  // Of the whole line, also when it does not fit.
  [[nodiscard]] size_t length() const { return length_; }

 private:
  std::array<char, kMaxLength + 1> text_;
  size_t length_;
};

// Runs the command and returns 0 or the code of the first line of its output that holds a system
// error; the result of tq_system_command when that failed; ENOMEM. A command line that does not fit
// is logged with the caller's place, and ENAMETOOLONG returned, with nothing run. Nothing runs
// either once the flash observer has stopped the work, and the stop is returned.
int run_tool(LogPlace caller, const ToolCommand& command);

}  // namespace tarvio

#endif
