#include "util/tool_command.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "base/owners.h"
#include "tarvio/error.h"
#include "tarvio/process.h"
#include "util/tq_flash_observer.h"

namespace tarvio {

ToolCommand::ToolCommand(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text_.data(), text_.size(), format, arguments);
  va_end(arguments);
  length_ = length < 0 ? text_.size() : static_cast<size_t>(length);
}

void ToolCommand::append(std::string_view piece) {
  if (fits() && length_ + piece.size() < text_.size()) {
    memcpy(text_.data() + length_, piece.data(), piece.size());
    text_[length_ + piece.size()] = '\0';
  }
  length_ += piece.size();
}

int run_tool(LogPlace caller, const ToolCommand& command) {
  if (FlashWork::stop() != 0) return FlashWork::stop();
  if (!command.fits()) {
    log_line(TQ_LOG_WARNING, caller.unit, caller.line,
             "command line of %zu characters is too long, at most %zu: %s", command.length(),
             ToolCommand::kMaxLength, command.text());
    return ENAMETOOLONG;
  }
  const StringList lines(tq_list_create());
  if (lines == nullptr) return ENOMEM;
  const int run = tq_system_command(command.text(), lines.get());
  if (run != 0) return run;
  observe_tool(lines.get());
  if (FlashWork::stop() != 0) return FlashWork::stop();
  return tq_check_command_result_error(lines.get());  // (oddity 9)
}

}  // namespace tarvio
