#include "config.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "base/line_cutter.h"
#include "base/line_reader.h"
#include "warn.h"

namespace tarviod {

namespace {

using tarvio::Conf;

constexpr char kLogFile[] = "log_file";
constexpr char kLogPeriod[] = "log_period";
constexpr char kHookPrefix[] = "hook.";
constexpr char kDefaultLogFile[] = "/var/log/messages";
constexpr char kDefaultLogPeriod[] = "5";
constexpr long kMaxSeconds = 86'400;
constexpr size_t kPrefixLength = sizeof kHookPrefix - 1;
constexpr size_t kPlaceSize = 512;

// The number of seconds, or -1.
int seconds_of(const char* text) {
  char* end = nullptr;
  errno = 0;
  const long seconds = strtol(text, &end, 10);
  const bool is_number = errno == 0 && text[0] >= '0' && text[0] <= '9' && *end == '\0';
  return is_number && seconds <= kMaxSeconds ? static_cast<int>(seconds) : -1;
}

bool is_hook(const char* key) { return strncmp(key, kHookPrefix, kPrefixLength) == 0; }

// What is wrong with a pair and what to do about it, or null.
const char* complaint_about(const char* key, const char* value) {
  if (strcmp(key, kLogFile) == 0) {
    return value[0] == '/' ? nullptr : "log_file is not an absolute path: begin it with '/'";
  }
  if (strcmp(key, kLogPeriod) == 0) {
    return seconds_of(value) >= 0
               ? nullptr
               : "log_period is not a number of seconds: write one from 0 (off) to 86400";
  }
  if (!is_hook(key)) return "unknown key: use log_file, log_period or hook.TEXT";
  if (key[kPrefixLength] == '\0') return "hook without a text: write hook.TEXT: APPLICATION";
  if (value[0] == '\0') return "hook without an application: write hook.TEXT: APPLICATION";
  return strlen(value) <= kMaxApplicationBytes
             ? nullptr
             : "application name too long: use the package's, of at most 127 bytes";
}

bool refuse(const char* path, const char* why, int line = __builtin_LINE()) {
  warn(path, why, line);
  return false;
}

bool refuse_line(const char* path, const char* number, const char* why,
                 int line = __builtin_LINE()) {
  char place[kPlaceSize];
  (void)snprintf(place, sizeof place, "%s:%s", path, number);
  return refuse(place, why, line);
}

bool refuse_unreadable(const char* path, int error, int line = __builtin_LINE()) {
  if (error == EISDIR) return refuse(path, "is a directory: name a file", line);
  if (error == ENOMEM) return refuse(path, "out of memory: free some and try again", line);
  char why[kPlaceSize];
  (void)snprintf(why, sizeof why, "%s: make it readable, or name another file with --config",
                 strerror(error));
  return refuse(path, why, line);
}

// The pairs of a file, and under the same keys in the same order, the numbers of their lines.
struct Settings {
  Conf pairs = tarvio::make_conf();
  Conf lines = tarvio::make_conf();
};

bool is_blank(char byte) { return byte == ' ' || byte == '\t'; }

// Cuts the text after its last word. Empty when there is none.
const char* last_word(char* text) {
  char* end = text + strlen(text);
  while (end > text && is_blank(end[-1])) --end;
  *end = '\0';
  while (end > text && !is_blank(end[-1])) --end;
  return end;
}

bool store(const Settings& settings, const char* key, const char* value, const char* line) {
  return tq_conf_write(settings.pairs.get(), key, value) == 0 &&
         tq_conf_write(settings.lines.get(), key, line) == 0;
}

// Takes lines apart as tq_conf_open2 does, which does not say in which line a pair stands, and
// takes the last of several words.
bool parse(const char* path, int fd, const Settings& settings) {
  tarvio::ReadAhead ahead;
  tarvio::LineCutter line(tarvio::LineEnd::kAny);
  tarvio::LineReader reader(fd, ahead, line);
  char number[12];
  for (int count = 1; reader.next(); ++count) {
    char* text = line.text();
    (void)snprintf(number, sizeof number, "%d", count);
    if (line.line().find('\0') != std::string_view::npos) {
      return refuse_line(path, number, "NUL byte in the line: write the file as plain text");
    }
    text[strcspn(text, "#;")] = '\0';
    if (text[strspn(text, " \t")] == '\0') continue;
    char* colon = strchr(text, ':');
    if (colon == nullptr) {
      return refuse_line(path, number, "no colon in the line: write KEY: VALUE");
    }
    *colon = '\0';
    char* value = colon + 1 + strspn(colon + 1, " \t");
    if (last_word(value) != value) {
      return refuse_line(path, number, "value of several words: write one word");
    }
    if (!store(settings, last_word(text), value, number)) {
      return refuse_unreadable(path, ENOMEM);
    }
  }
  return reader.error() == 0 || refuse_unreadable(path, reader.error());
}

// Of pairs with the same key the last one alone counts, so they are checked when all are known.
bool check(const char* path, const Settings& settings) {
  for (int i = 0; i < tq_count_variables(settings.pairs.get()); ++i) {
    const char* complaint = complaint_about(tq_find_name(settings.pairs.get(), i),
                                            tq_find_value(settings.pairs.get(), i));
    if (complaint != nullptr)
      return refuse_line(path, tq_find_value(settings.lines.get(), i), complaint);
  }
  return true;
}

}  // namespace

const char* Config::value_of(const char* key, const char* otherwise) const {
  const char* value = tq_conf_read(pairs_.get(), key);
  return value[0] == '\0' ? otherwise : value;
}

const char* Config::log_file() const { return value_of(kLogFile, kDefaultLogFile); }

int Config::log_period_s() const { return seconds_of(value_of(kLogPeriod, kDefaultLogPeriod)); }

const char* Config::hook_text(int index) const {
  const char* key = tq_find_name(pairs_.get(), index);
  return is_hook(key) ? key + kPrefixLength : nullptr;
}

bool read_config(const char* path, Config& config) {
  const char* name = config_path(path);
  const tarvio::Fd file(open(name, O_RDONLY | O_CLOEXEC));
  Settings settings;
  const bool is_empty = !file.valid() && errno == ENOENT && path == nullptr;
  if (!file.valid() && !is_empty) return refuse_unreadable(name, errno);
  if (!is_empty && !(parse(name, file.get(), settings) && check(name, settings))) return false;
  config = Config(std::move(settings.pairs), std::move(settings.lines));
  return true;
}

}  // namespace tarviod
