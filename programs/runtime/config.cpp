#include "runtime/config.h"

#include <string.h>

#include <utility>

#include "runtime/conf_file.h"
#include "runtime/log_format.h"

namespace runtime {

namespace {

constexpr char kLogSource[] = "log_source";
constexpr char kLogFile[] = "log_file";
constexpr char kLogFormat[] = "log_format";
constexpr char kLogPeriod[] = "log_period";
constexpr char kHookPrefix[] = "hook.";
constexpr char kLevelPrefix[] = "level.";
constexpr char kDefaultLogFile[] = "/var/log/messages";
constexpr char kDefaultLogPeriod[] = "5";
constexpr long kMaxSeconds = 86'400;

// The number of seconds, or -1.
int seconds_of(const char* text) { return static_cast<int>(number_of(text, kMaxSeconds)); }

// What follows a prefix, or null for a key without it.
const char* after(const char* prefix, const char* key) {
  const size_t length = strlen(prefix);
  return strncmp(key, prefix, length) == 0 ? key + length : nullptr;
}

// The value of a prefix and a text, or null.
const char* find_value(const tq_conf* pairs, const char* prefix, const char* text) {
  for (int i = 0; i < tq_count_variables(pairs); ++i) {
    const char* other = after(prefix, tq_find_name(pairs, i));
    if (other != nullptr && strcmp(other, text) == 0) return tq_find_value(pairs, i);
  }
  return nullptr;
}

const char* complaint_about_hook(const char* text, const char* application) {
  if (text[0] == '\0') return "hook without a text: write hook.TEXT: APPLICATION";
  if (application[0] == '\0') return "hook without an application: write hook.TEXT: APPLICATION";
  return strlen(application) <= kMaxApplicationBytes
             ? nullptr
             : "application name too long: use the package's, of at most 127 bytes";
}

// What is wrong with a pair and what to do about it, or null.
const char* complaint_about(const char* key, const char* value) {
  if (strcmp(key, kLogSource) == 0) {
    return strcmp(value, "file") == 0 || strcmp(value, kJournal) == 0
               ? nullptr
               : "unknown log_source: write file or journal";
  }
  if (strcmp(key, kLogFile) == 0) {
    return value[0] == '/' ? nullptr : "log_file is not an absolute path: begin it with '/'";
  }
  if (strcmp(key, kLogFormat) == 0) {
    return index_of(value, kLogFormats) >= 0
               ? nullptr
               : "unknown log_format: write auto, busybox, traditional, iso or rfc5424";
  }
  if (strcmp(key, kLogPeriod) == 0) {
    return seconds_of(value) >= 0
               ? nullptr
               : "log_period is not a number of seconds: write one from 0 (off) to 86400";
  }
  if (after(kLevelPrefix, key) != nullptr) {
    return index_of(value, kSeverities) >= 0
               ? nullptr
               : "unknown level: write debug, info, notice, warning, err, crit, alert or emerg";
  }
  const char* text = after(kHookPrefix, key);
  return text != nullptr ? complaint_about_hook(text, value)
                         : "unknown key: use log_source, log_file, log_format, log_period, "
                           "hook.TEXT or level.TEXT";
}

// A level of a text that no hook has is a misspelling.
bool levels_have_hooks(const char* path, const ConfFile& file, Mistake& mistake) {
  for (int i = 0; i < tq_count_variables(file.pairs.get()); ++i) {
    const char* text = after(kLevelPrefix, tq_find_name(file.pairs.get(), i));
    if (text == nullptr || find_value(file.pairs.get(), kHookPrefix, text) != nullptr) continue;
    return refuse_line(path, tq_find_value(file.lines.get(), i),
                       "level without a hook of the same text: add hook.TEXT: APPLICATION",
                       mistake);
  }
  return true;
}

}  // namespace

const char* Config::value_of(const char* key, const char* otherwise) const {
  const char* value = tq_conf_read(pairs_.get(), key);
  return value[0] == '\0' ? otherwise : value;
}

const char* Config::log() const {
  const bool is_journal = strcmp(value_of(kLogSource, ""), kJournal) == 0;
  return is_journal ? kJournal : value_of(kLogFile, kDefaultLogFile);
}

const char* Config::log_format() const { return value_of(kLogFormat, kLogFormats[0]); }

int Config::log_period_s() const { return seconds_of(value_of(kLogPeriod, kDefaultLogPeriod)); }

const char* Config::hook_text(int index) const {
  return after(kHookPrefix, tq_find_name(pairs_.get(), index));
}

const char* Config::level_of(const char* text) const {
  const char* level = find_value(pairs_.get(), kLevelPrefix, text);
  return level == nullptr ? kNoLevel : level;
}

bool read_config(const char* path, Config& config, Mistake& mistake) {
  ConfFile file;
  const char* name = config_path(path);
  const MissingFile missing = path == nullptr ? MissingFile::kEmpty : MissingFile::kRefused;
  if (!read_conf_file(name, missing, complaint_about, file, mistake) ||
      !levels_have_hooks(name, file, mistake)) {
    return false;
  }
  config = Config(std::move(file.pairs), std::move(file.lines));
  return true;
}

}  // namespace runtime
