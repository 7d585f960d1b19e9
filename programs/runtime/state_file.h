// The manager's states and figures in kStatePath: lines of fields with a tab between them, "end"
// last.
//
//   tarvio-state 1
//   boot BOOT-ID
//   manager PID START
//   descriptors USED LIMIT
//   app NAME STATE PID SINCE STARTS EXIT INSTALLED RUNNING
//   status LEVEL NAME DETAIL
//   end
#ifndef TARVIO_RUNTIME_STATE_FILE_H
#define TARVIO_RUNTIME_STATE_FILE_H

#include <errno.h>
#include <stdint.h>

#include <array>
#include <optional>
#include <string_view>

#include "runtime/process_id.h"

namespace runtime {

// Of an application. The names of the states in the file are those of kAppStateWords.
enum class AppState : uint8_t { kStopped, kRunning, kStopping, kEnded, kRestarting };
inline constexpr std::array<std::string_view, 5> kAppStateWords = {"stopped", "running", "stopping",
                                                                   "ended", "restarting"};
constexpr std::string_view word_for(AppState state) {
  return kAppStateWords[static_cast<size_t>(state)];
}

// How an application has ended, or what kept its start file from running. The names in the file are
// those of kExitWords.
enum class ExitKind : uint8_t {
  kNone,
  kStatus,
  kSignal,
  kNotRun,
  kNoOutput,
  kNoLimits,
  kNoUser,
  kNotStarted  // again
};
inline constexpr std::array<std::string_view, 8> kExitWords = {
    "-", "status", "signal", "not-run", "no-output", "no-limits", "no-user", "not-started"};

// The error code of an application whose settings have a mistake.
inline constexpr int kBadSettings = ECANCELED;
// Why something could not be done with an application: that mistake, or as strerror.
const char* describe_error(int code);

struct AppExit {
  ExitKind kind = ExitKind::kNone;
  int number = 0;  // exit status, signal, or the errno value of what kept it from running

  [[nodiscard]] bool is_not_run() const { return kind >= ExitKind::kNotRun; }
  // What could not be done, for one that was not run.
  [[nodiscard]] const char* failed_step() const {
    return kind == ExitKind::kNoOutput     ? "cannot open its output"
           : kind == ExitKind::kNoLimits   ? "cannot set its priority and limits"
           : kind == ExitKind::kNoUser     ? "cannot become its user"
           : kind == ExitKind::kNotStarted ? "cannot be started"
                                           : "cannot run its start file";
  }
};

struct AppLine {
  std::string_view name;
  AppState state = AppState::kStopped;
  pid_t pid = 0;      // 0 for none
  int64_t since = 0;  // of the state, in seconds since the epoch; 0 before the first start
  int starts = 0;
  AppExit exit;
  std::string_view installed;  // version of the package
  std::string_view running;    // version of the package when it was started; empty for none
};

// Of the limit: so many are short of it, of which the manager warns.
inline constexpr long long kMostDescriptorPercent = 80;

struct StatusLine {
  int level = 0;
  std::string_view name;
  std::string_view detail;
};

// A text of this form, taken apart. The views point into it.
class StateFile {
 public:
  // None when the text is not whole or has a line that is not understood.
  static std::optional<StateFile> parse(std::string_view text);

  [[nodiscard]] std::string_view boot() const { return boot_; }
  [[nodiscard]] const ProcessId& manager() const { return manager_; }
  [[nodiscard]] int descriptors_used() const { return descriptors_used_; }
  [[nodiscard]] int descriptor_limit() const { return descriptor_limit_; }

  // Written during this boot.
  [[nodiscard]] bool is_of_this_boot() const;
  // Written by a manager that still runs.
  [[nodiscard]] bool is_current() const { return is_of_this_boot() && is_alive(manager_); }

  void each_app(auto take) const {
    each_line([&](std::string_view line) {
      if (const std::optional<AppLine> app = parse_app(line)) take(*app);
    });
  }
  void each_status(auto take) const {
    each_line([&](std::string_view line) {
      if (const std::optional<StatusLine> status = parse_status(line)) take(*status);
    });
  }

 private:
  explicit StateFile(std::string_view text) : text_(text) {}

  // None for another line.
  static std::optional<AppLine> parse_app(std::string_view line);
  static std::optional<StatusLine> parse_status(std::string_view line);
  bool take_head(std::string_view line);

  void each_line(auto take) const {
    for (std::string_view rest = text_; !rest.empty();) {
      const size_t end = rest.find('\n');
      const size_t length = end == std::string_view::npos ? rest.size() : end;
      take(std::string_view(rest.data(), length));
      rest.remove_prefix(length == rest.size() ? length : length + 1);
    }
  }

  std::string_view text_;
  std::string_view boot_;
  ProcessId manager_;
  int descriptors_used_ = 0;
  int descriptor_limit_ = 0;
};

}  // namespace runtime

#endif
