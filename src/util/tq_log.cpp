#undef _FORTIFY_SOURCE  // or a host that wraps syslog and printf would not see the calls

#include "tarvio/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>

#include "base/decimal.h"
#include "base/owners.h"
#include "util/log_macros.h"

namespace {

constexpr size_t kLineSize = 1024;

constinit std::atomic<int> threshold{TQ_LOG_WARNING};

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

// A line of the log, which is cut where it is full.
class Line {
 public:
  // Like format, for a format whose only conversions are plain "%s" and "%d", as nearly all are.
  // False for any other, with the line unfinished.
  bool format_plain(const char* format, va_list arguments) {
    while (true) {
      const char* percent = strchrnul(format, '%');
      append({format, percent});
      if (*percent == '\0') return true;
      if (percent[1] == 's') {
        append_string(va_arg(arguments, const char*));
      } else if (percent[1] == 'd') {
        append_number(va_arg(arguments, int));
      } else {
        return false;
      }
      format = percent + 2;
    }
  }

  void format(const char* format, va_list arguments) {
    text_ = {};  // after a failure only the text shows how much was composed
    (void)vsnprintf(text_.data(), text_.size(), format, arguments);
    used_ = strnlen(text_.data(), text_.size() - 1);
  }

  void append(std::string_view piece) {
    const size_t count = std::min(piece.size(), text_.size() - 1 - used_);
    memcpy(text_.data() + used_, piece.data(), count);
    used_ += count;
  }

  void append_string(const char* string) { append(string == nullptr ? "(null)" : string); }

  void append_number(int number) { append(tarvio::Decimal(number).text()); }

  const char* text() {
    text_[used_] = '\0';
    return text_.data();
  }

 private:
  std::array<char, kLineSize> text_;
  size_t used_ = 0;
};

bool is_dropped(int level) { return threshold.load(std::memory_order_relaxed) > level; }

// A message that is dropped is formatted too (oddity 3). A host may log much that is, so the printf
// family, which takes several times as long, does only what needs it.
void compose_and_log(int level, const char* file, int line, const char* format, va_list arguments) {
  const tarvio::ErrnoKeeper keeper;
  Line composed;
  va_list again;
  va_copy(again, arguments);
  if (!composed.format_plain(format, arguments)) composed.format(format, again);
  va_end(again);
  composed.append(" -  ");  // (oddity 1)
  composed.append_string(file);
  composed.append(" ");
  composed.append_number(line);
  composed.append("\n");
  const char* text = composed.text();

  if (is_dropped(level)) return;
  syslog(priority_of(level), "%s", text);
  if (level == TQ_LOG_DEBUG) (void)printf("%s", text);  // (oddity 2)
}

}  // namespace

void tq_log_init(void) { openlog("tarvio", LOG_CONS, LOG_USER); }

void tq_set_log_level(int level) { threshold.store(level, std::memory_order_relaxed); }

void tq_log_func(int level, const char* file, int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  compose_and_log(level, file, line, format, arguments);
  va_end(arguments);
}

void tarvio::log_line(int level, const char* unit, int line, const char* format, ...) {
  if (is_dropped(level)) return;
  va_list arguments;
  va_start(arguments, format);
  compose_and_log(level, unit, line, format, arguments);
  va_end(arguments);
}
