#include "journal_entry.h"

#include <stdlib.h>
#include <string.h>
#include <syslog.h>

namespace tarviod {

namespace {

// Takes JSON apart in place: no value is longer than the text of it.
class Json {
 public:
  explicit Json(char* text) : at_(text) {}

  // The next pair of an object; false at its end, and where it is damaged.
  bool next(std::string_view& key, std::string_view& value) {
    if (!take('{') && !take(',')) return false;
    return take_string(key) && take(':') && take_value(value);
  }

  [[nodiscard]] bool is_at_end() const { return *at_ == '}'; }

 private:
  bool take(char byte) {
    at_ += strspn(at_, " \t\r\n");
    if (*at_ != byte) return false;
    ++at_;
    return true;
  }

  bool take_string(std::string_view& value) {
    if (!take('"')) return false;
    const char* begin = at_;
    char* end = at_;
    while (*at_ != '"') {
      if (*at_ == '\\') {
        ++at_;
        // journalctl escapes nothing else but control bytes, which are blanks in a status.
        const bool is_itself = *at_ == '"' || *at_ == '\\' || *at_ == '/';
        if (!is_itself) at_ += *at_ == 'u' ? strnlen(at_, 4) : 0;
        if (*at_ != '\0' && !is_itself) *at_ = ' ';
      }
      if (*at_ == '\0') return false;
      *end++ = *at_++;
    }
    ++at_;
    value = {begin, static_cast<size_t>(end - begin)};
    return true;
  }

  // A number, or null, which is empty.
  bool take_literal(std::string_view& value) {
    value = {at_, strcspn(at_, ",]}")};
    at_ += value.size();
    if (value == "null") value = "";
    return *at_ != '\0';
  }

  // The first of several texts, or the bytes of one that is not UTF-8 or has control bytes.
  bool take_array(std::string_view& value) {
    const char* begin = at_;
    char* end = at_;
    std::string_view other;
    if (*at_ == '"') {
      if (!take_string(value)) return false;
      while (take(',') && take_string(other)) {
      }
      return take(']');
    }
    do {
      if (!take_literal(other)) return false;
      *end++ = static_cast<char>(atoi(other.data()));
    } while (take(','));
    value = {begin, static_cast<size_t>(end - begin)};
    return take(']');
  }

  bool take_value(std::string_view& value) {
    if (take('[')) return take_array(value);
    return *at_ == '"' ? take_string(value) : take_literal(value);
  }

  char* at_;
};

}  // namespace

bool parse_entry(char* line, JournalEntry& entry) {
  runtime::LogMessage& message = entry.message;
  std::string_view level;
  std::string_view facility;
  std::string_view command;
  std::string_view process;
  const struct {
    std::string_view name;
    std::string_view& value;
  } fields[] = {
      {"__CURSOR", entry.cursor},
      {"PRIORITY", level},
      {"SYSLOG_FACILITY", facility},
      {"SYSLOG_IDENTIFIER", message.ident},
      {"SYSLOG_PID", message.pid},
      {"MESSAGE", message.text},
      {"_COMM", command},
      {"_PID", process},
  };
  Json json(line);
  std::string_view key;
  std::string_view value;
  while (json.next(key, value)) {
    for (const auto& field : fields) {
      if (field.name == key) field.value = value;
    }
  }
  if (!json.is_at_end() || entry.cursor.empty()) return false;
  if (message.ident.empty()) message.ident = command;
  if (message.pid.empty()) message.pid = process;
  // Each of them is followed by a quotation mark.
  const int facility_code =
      facility.empty() ? LOG_USER : LOG_MAKEPRI(atoi(facility.data()) << 3, 0);
  if (!level.empty()) message.priority = facility_code | LOG_PRI(atoi(level.data()));
  return true;
}

}  // namespace tarviod
