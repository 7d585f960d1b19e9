// The configuration file.
#ifndef TARVIOD_CONFIG_H
#define TARVIOD_CONFIG_H

#include <stddef.h>

#include <utility>

#include "base/owners.h"
#include "tarvio/conf.h"

namespace tarviod {

inline constexpr char kDefaultConfigPath[] = "/etc/tarvio/tarviod.conf";
inline constexpr int kMaxApplicationBytes = 127;

// The settings of a file; owns the strings.
class Config {
 public:
  Config() = default;
  explicit Config(tarvio::Conf pairs) : pairs_(std::move(pairs)) {}

  [[nodiscard]] const char* log_file() const;
  [[nodiscard]] int log_period_s() const;  // 0: the log is not watched

  // The hooks and their applications, in the order of the file, as `add(text, application)`.
  void each_hook(auto add) const {
    for (int i = 0; i < tq_count_variables(pairs_.get()); ++i) {
      const char* text = hook_text(i);
      if (text != nullptr) add(text, tq_find_value(pairs_.get(), i));
    }
  }
  [[nodiscard]] size_t hook_count() const {
    size_t count = 0;
    each_hook([&](const char*, const char*) { ++count; });
    return count;
  }

 private:
  [[nodiscard]] const char* hook_text(int index) const;  // null for another setting
  [[nodiscard]] const char* value_of(const char* key, const char* otherwise) const;

  tarvio::Conf pairs_;
};

// Reads a file. False when it cannot be used, with file, line, cause and remedy on standard error
// and in the log.
//
// path  null for the default path, where a missing file counts as an empty one.
bool read_config(const char* path, Config& config);

}  // namespace tarviod

#endif
