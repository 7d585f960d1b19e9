#include <string.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "base/owners.h"
#include "tarvio/log_monitor.h"
#include "util/log_macros.h"

static_assert(offsetof(tq_syslog_line, ident) == sizeof(void*));
static_assert(offsetof(tq_syslog_line, message) == 2 * sizeof(void*));
static_assert(sizeof(tq_syslog_line) == 3 * sizeof(void*));

namespace {

constexpr size_t kMonthLetters = 3;
constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct LevelText {
  const char* text;
  int32_t level;
};

// The first that a level word contains counts (oddity 109).
constexpr std::array<LevelText, 8> kLevels = {{
    {"debug", 0},
    {"info", 0},
    {"notice", 0},
    {"warn", 1},
    {"err", 2},
    {"crit", 2},
    {"alert", 2},
    {"emerg", 2},
}};
constexpr int32_t kNoLevel = -1;

// Splits a text in place. Once a token is missing, so are all that follow.
class Tokens {
 public:
  explicit Tokens(char* text) : text_(text) {}

  // The next token; runs of separators count as one. Null at the end of the text.
  char* next(const char* separators) {
    return strtok_r(std::exchange(text_, nullptr), separators, &rest_);
  }

 private:
  char* text_;
  char* rest_ = nullptr;
};

struct Fields {
  const char* level;
  const char* ident;
  const char* message;
};

// False when the monitor has no use for the line. The line feeds in the messages stay (oddity 5).
bool split(char* line, Fields& fields) {
  Tokens tokens(line);
  const char* month = tokens.next(" ");
  if (tq_get_month(month) < 0) {
    TQ_DEBUG("this line is not parseable\n");
    return false;
  }
  // Day, hours, minutes, seconds and host stand before the level.
  for (const char* separator : {" ", ":", ":", " ", " "}) (void)tokens.next(separator);
  fields.level = tokens.next(" ");
  TQ_DEBUG("mon %s\n", month);
  if (fields.level == nullptr) return false;
  if (strstr(fields.level, "--") != nullptr) {
    TQ_DEBUG("this is -- MARK -- line\n");
    return false;
  }
  fields.ident = tokens.next(":");
  fields.message = tokens.next("\n");
  return fields.message != nullptr;
}

int32_t level_of(const char* field) {
  const char* dot = strchr(field, '.');
  const char* word = dot == nullptr ? field : dot + 1;
  for (const LevelText& level : kLevels) {
    if (strstr(word, level.text) != nullptr) return level.level;
  }
  return kNoLevel;
}

}  // namespace

int tq_get_month(const char* text) {
  if (text == nullptr) return -1;
  const size_t length = strnlen(text, kMonthLetters);  // one letter is enough (oddity 108)
  const auto* const month = std::find_if(kMonths.begin(), kMonths.end(), [&](const char* name) {
    return strncmp(text, name, length) == 0;
  });
  return month == kMonths.end() ? -1 : static_cast<int>(month - kMonths.begin());
}

tq_syslog_line* tq_parse_syslog(const char* line) {
  const tarvio::CString copy = tarvio::copy_of(line);
  Fields fields = {};
  if (copy == nullptr || !split(copy.get(), fields)) return nullptr;

  tarvio::Allocated<tq_syslog_line> parsed = tarvio::allocate<tq_syslog_line>();
  tarvio::CString ident = tarvio::copy_of(fields.ident);
  tarvio::CString message = tarvio::copy_of(fields.message);
  if (parsed == nullptr || ident == nullptr || message == nullptr) return nullptr;
  *parsed = {
      .level = level_of(fields.level), .ident = ident.release(), .message = message.release()};
  TQ_DEBUG("read log %s[%d] ; %s\n", parsed->ident, parsed->level, parsed->message);
  return parsed.release();
}
