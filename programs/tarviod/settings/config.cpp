#include "config.h"

#include <string.h>

#include <utility>

#include "conf_file.h"

namespace tarviod {

namespace {

constexpr char kLogFile[] = "log_file";
constexpr char kLogPeriod[] = "log_period";
constexpr char kHookPrefix[] = "hook.";
constexpr char kDefaultLogFile[] = "/var/log/messages";
constexpr char kDefaultLogPeriod[] = "5";
constexpr long kMaxSeconds = 86'400;
constexpr size_t kPrefixLength = sizeof kHookPrefix - 1;

// The number of seconds, or -1.
int seconds_of(const char* text) { return static_cast<int>(number_of(text, kMaxSeconds)); }

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
  ConfFile file;
  const MissingFile missing = path == nullptr ? MissingFile::kEmpty : MissingFile::kRefused;
  if (!read_conf_file(config_path(path), missing, complaint_about, file)) return false;
  config = Config(std::move(file.pairs), std::move(file.lines));
  return true;
}

}  // namespace tarviod
