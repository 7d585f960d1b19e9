#include "support/hooks/log_capture.h"

#include <syslog.h>

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <ostream>

#include "tarvio/log.h"

namespace tarvio_test {
namespace {

constexpr int kThresholdAtLoad = TQ_LOG_WARNING;

LogCapture* active = nullptr;

int priority_of(int level) {
  switch (level) {
    case TQ_LOG_INFO:
      return LOG_INFO;
    case TQ_LOG_WARNING:
      return LOG_WARNING;
    case TQ_LOG_ERROR:
      return LOG_ERR;
    default:
      return LOG_DEBUG;
  }
}

void capturing_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* text = nullptr;
  if (::vasprintf(&text, format, arguments) >= 0) {
    active->add(priority, text);
    std::free(text);
  }
  va_end(arguments);
}

// Takes "MESSAGE -  UNIT LINE\n" apart.
LogRecord parse(int priority, std::string text) {
  LogRecord record;
  record.priority = priority;
  const size_t separator = text.rfind(" -  ");
  const size_t blank = text.rfind(' ');
  if (separator != std::string::npos && blank > separator + 3 && text.ends_with('\n')) {
    record.message = text.substr(0, separator);
    record.unit = text.substr(separator + 4, blank - separator - 4);
    std::from_chars(text.data() + blank + 1, text.data() + text.size(), record.line);
  }
  record.text = std::move(text);
  return record;
}

}  // namespace

LogCapture::LogCapture() {
  if (active != nullptr) ADD_FAILURE() << "only one LogCapture at a time";
  active = this;
  syslog_.emplace("syslog", reinterpret_cast<void*>(&capturing_syslog));
}

LogCapture::LogCapture(int threshold) : LogCapture() {
  ::tq_set_log_level(threshold);
  restores_threshold_ = true;
}

LogCapture::~LogCapture() {
  if (restores_threshold_) ::tq_set_log_level(kThresholdAtLoad);
  syslog_.reset();
  active = nullptr;
}

std::vector<LogRecord> LogCapture::records() const {
  const std::lock_guard lock(mutex_);
  return records_;
}

std::vector<std::string> LogCapture::messages(int level) const {
  std::vector<std::string> messages;
  for (const LogRecord& record : records())
    if (record.priority == priority_of(level)) messages.push_back(record.message);
  return messages;
}

testing::AssertionResult LogCapture::contains(int level, const std::string& unit,
                                              const std::string& message) const {
  const std::vector<LogRecord> logged = records();
  const bool found = std::any_of(logged.begin(), logged.end(), [&](const LogRecord& record) {
    return record.priority == priority_of(level) && record.unit == unit &&
           record.message == message;
  });
  if (found) return testing::AssertionSuccess() << "it was logged";
  auto failure = testing::AssertionFailure();
  failure << "\"" << message << "\" of " << unit << " was not logged at level " << level
          << "; what was logged:\n";
  for (const LogRecord& record : logged) failure << record << "\n";
  return failure;
}

void LogCapture::clear() {
  const std::lock_guard lock(mutex_);
  records_.clear();
}

void LogCapture::add(int priority, std::string text) {
  LogRecord record = parse(priority, std::move(text));
  const std::lock_guard lock(mutex_);
  records_.push_back(std::move(record));
}

std::ostream& operator<<(std::ostream& stream, const LogRecord& record) {
  return stream << record.priority << " " << testing::PrintToString(record.text);
}

}  // namespace tarvio_test
