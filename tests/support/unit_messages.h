// What one unit of the library logged.
#ifndef TARVIO_TESTS_SUPPORT_UNIT_MESSAGES_H
#define TARVIO_TESTS_SUPPORT_UNIT_MESSAGES_H

#include <syslog.h>

#include <string>
#include <vector>

#include "support/hooks/log_capture.h"

namespace tarvio_test {

// One text per message, in order: "debug: ...", "info: ...", "warning: ..." or "error: ...".
inline std::vector<std::string> unit_messages(const LogCapture& log, const std::string& unit) {
  std::vector<std::string> messages;
  for (const LogRecord& record : log.records()) {
    if (record.unit != unit) continue;
    const char* level = record.priority == LOG_DEBUG     ? "debug: "
                        : record.priority == LOG_INFO    ? "info: "
                        : record.priority == LOG_WARNING ? "warning: "
                                                         : "error: ";
    messages.push_back(level + record.message);
  }
  return messages;
}

}  // namespace tarvio_test

#endif
