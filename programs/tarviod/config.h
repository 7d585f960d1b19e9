// The configuration file.
#ifndef TARVIOD_CONFIG_H
#define TARVIOD_CONFIG_H

#include <utility>

#include "tarvio/conf.h"

namespace tarviod {

inline constexpr char kDefaultConfigPath[] = "/etc/tarvio/tarviod.conf";
inline constexpr char kHookPrefix[] = "hook.";
inline constexpr int kMostApplicationBytes = 127;

// What the file says; it owns the strings.
class Config {
 public:
  Config() = default;
  explicit Config(tq_conf* pairs) : pairs_(pairs) {}
  Config(Config&& other) noexcept : pairs_(std::exchange(other.pairs_, nullptr)) {}
  Config& operator=(Config&& other) noexcept {
    std::swap(pairs_, other.pairs_);
    return *this;
  }
  ~Config() { (void)tq_conf_close(pairs_); }

  [[nodiscard]] const char* log_file() const;
  [[nodiscard]] int log_period_s() const;  // 0: the log is not watched

  // The hooks and their applications, in the order of the file, as `add(text, application)`.
  void each_hook(auto add) const {
    for (int i = 0; i < count(); ++i) {
      if (const char* text = hook_text(i); text != nullptr) add(text, tq_find_value(pairs_, i));
    }
  }

 private:
  [[nodiscard]] int count() const { return pairs_ == nullptr ? 0 : tq_count_variables(pairs_); }
  [[nodiscard]] const char* hook_text(int index) const;
  [[nodiscard]] const char* value_of(const char* key, const char* otherwise) const;

  tq_conf* pairs_ = nullptr;
};

// Reads a file. False when it is of no use, with file, line and remedy on standard error and in the
// log.
//
// path  null for the default path, where a missing file counts as an empty one.
bool read_config(const char* path, Config& config);

}  // namespace tarviod

#endif
