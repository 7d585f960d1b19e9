// The configuration file of the manager.
#ifndef TARVIO_RUNTIME_CONFIG_H
#define TARVIO_RUNTIME_CONFIG_H

#include <stddef.h>

#include <utility>

#include "base/owners.h"
#include "runtime/conf_file.h"
#include "tarvio/conf.h"

namespace runtime {

inline constexpr char kDefaultConfigPath[] = "/etc/tarvio/tarviod.conf";
inline constexpr int kMaxApplicationBytes = 127;

// The path that a command line names, null for none.
inline const char* config_path(const char* named) {
  return named == nullptr ? kDefaultConfigPath : named;
}

// The settings of a file; owns the strings.
class Config {
 public:
  Config() = default;
  // lines  under the keys of the pairs, and in their order, the numbers of their lines.
  Config(tarvio::Conf pairs, tarvio::Conf lines)
      : pairs_(std::move(pairs)), lines_(std::move(lines)) {}

  // The path of a file, or kJournal.
  [[nodiscard]] const char* log() const;
  [[nodiscard]] const char* log_format() const;  // one of kLogFormats
  [[nodiscard]] int log_period_s() const;        // 0: the log is not watched

  // The level of lines that have none, for the hook of a text: one of kSeverities, or kNoLevel.
  static constexpr char kNoLevel[] = "-";
  [[nodiscard]] const char* level_of(const char* text) const;

  // The hooks in the order of the file, as `add(text, application, line)`.
  void each_hook(auto add) const {
    for (int i = 0; i < tq_count_variables(pairs_.get()); ++i) {
      const char* text = hook_text(i);
      if (text != nullptr)
        add(text, tq_find_value(pairs_.get(), i), tq_find_value(lines_.get(), i));
    }
  }
  [[nodiscard]] size_t hook_count() const {
    size_t count = 0;
    each_hook([&](const char*, const char*, const char*) { ++count; });
    return count;
  }

 private:
  [[nodiscard]] const char* hook_text(int index) const;  // null for another setting
  [[nodiscard]] const char* value_of(const char* key, const char* otherwise) const;

  tarvio::Conf pairs_;
  tarvio::Conf lines_;
};

// Reads a file. False, with the mistake, when it cannot be used.
//
// path  null for the default path, where a missing file counts as an empty one.
bool read_config(const char* path, Config& config, Mistake& mistake);

}  // namespace runtime

#endif
