#include "config.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "config_line.h"
#include "warn.h"

namespace tarviod {

namespace {

constexpr char kLogFile[] = "log_file";
constexpr char kLogPeriod[] = "log_period";
constexpr char kDefaultLogFile[] = "/var/log/messages";
constexpr char kDefaultLogPeriod[] = "5";
constexpr long kMostSeconds = 86'400;
constexpr size_t kPrefixLength = sizeof kHookPrefix - 1;
constexpr size_t kPlaceSize = 512;

// The number of seconds, or -1.
int seconds_of(const char* text) {
  char* end = nullptr;
  errno = 0;
  const long seconds = strtol(text, &end, 10);
  const bool is_number = errno == 0 && text[0] >= '0' && text[0] <= '9' && *end == '\0';
  return is_number && seconds <= kMostSeconds ? static_cast<int>(seconds) : -1;
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
  return strlen(value) <= kMostApplicationBytes
             ? nullptr
             : "application name too long: use the package's, of at most 127 bytes";
}

bool refuse(const char* path, const char* why) {
  warn(path, why);
  return false;
}

bool refuse_line(const char* path, int line, const char* why) {
  char place[kPlaceSize];
  (void)snprintf(place, sizeof place, "%s:%d", path, line);
  return refuse(place, why);
}

bool check_pairs(const char* path, FILE* file, tq_conf* pairs) {
  for (int i = 0; i < tq_count_variables(pairs); ++i) {
    const char* key = tq_find_name(pairs, i);
    const char* complaint = complaint_about(key, tq_find_value(pairs, i));
    if (complaint != nullptr) return refuse_line(path, line_of(file, key), complaint);
  }
  return true;
}

bool read_file(const char* path, FILE* file, Config& config) {
  struct stat info = {};
  if (fstat(fileno(file), &info) != 0) return refuse(path, strerror(errno));
  if (S_ISDIR(info.st_mode)) return refuse(path, "is a directory: name a file");
  tq_conf* pairs = tq_conf_open2(path);
  if (pairs == nullptr) {
    const int line = line_of(file, nullptr);
    if (line == 0) return refuse(path, "cannot be read: free some memory, and try again");
    return refuse_line(path, line, "no colon in the line: write KEY: VALUE");
  }
  Config read(pairs);
  if (!check_pairs(path, file, pairs)) return false;
  config = std::move(read);
  return true;
}

}  // namespace

const char* Config::value_of(const char* key, const char* otherwise) const {
  const char* value = pairs_ == nullptr ? "" : tq_conf_read(pairs_, key);
  return value[0] == '\0' ? otherwise : value;
}

const char* Config::log_file() const { return value_of(kLogFile, kDefaultLogFile); }

int Config::log_period_s() const { return seconds_of(value_of(kLogPeriod, kDefaultLogPeriod)); }

const char* Config::hook_text(int index) const {
  const char* key = tq_find_name(pairs_, index);
  return is_hook(key) ? key + kPrefixLength : nullptr;
}

bool read_config(const char* path, Config& config) {
  const char* name = path == nullptr ? kDefaultConfigPath : path;
  FILE* file = fopen(name, "re");
  if (file != nullptr) {
    const bool read = read_file(name, file, config);
    (void)fclose(file);
    return read;
  }
  if (path == nullptr && errno == ENOENT) {
    config = Config();
    return true;
  }
  char why[kPlaceSize];
  (void)snprintf(why, sizeof why, "%s: make it readable, or name another file with --config",
                 strerror(errno));
  return refuse(name, why);
}

}  // namespace tarviod
