// What the manager knows about the runs of each application, beside its record.
#ifndef TARVIOD_APP_RUNS_H
#define TARVIOD_APP_RUNS_H

#include <stdint.h>

#include <array>

#include "base/chain.h"
#include "base/deadline.h"
#include "keeper/protocol.h"
#include "restarts.h"
#include "runtime/state_file.h"

namespace tarviod {

struct AppRuns {
  char name[kMaxNameBytes + 1] = "";
  char version[kMaxVersionBytes + 1] = "";  // of the package that was started last
  runtime::AppState state = runtime::AppState::kStopped;
  runtime::ProcessId process;
  int64_t since = 0;  // of the state, in seconds since the epoch
  int starts = 0;
  int stop_timeout_ms = 0;
  runtime::AppExit exit;
  Restarts restarts;
  tarvio::Deadline restart_due = tarvio::Deadline::never();
  // Of the last start or stop in the present request: an error code, and which of them failed.
  int failure = 0;
  bool is_start = false;
  bool is_kept = false;  // the keeper knows it
  AppRuns* next = nullptr;
};

// Grows with each application that was ever known.
class AppRunsTable {
 public:
  AppRunsTable() = default;
  AppRunsTable(const AppRunsTable&) = delete;
  AppRunsTable& operator=(const AppRunsTable&) = delete;
  ~AppRunsTable();

  [[nodiscard]] AppRuns* find(const char* name) const;
  // Null when memory runs out.
  AppRuns* find_or_add(const char* name);
  [[nodiscard]] tarvio::Chain<AppRuns> all() const { return {first_}; }

 private:
  AppRuns* first_ = nullptr;
};

// From what waitpid gave.
runtime::AppExit exit_of(const KeptApp& kept);
inline bool is_failure(const runtime::AppExit& exit) {
  return exit.kind != runtime::ExitKind::kStatus || exit.number != 0;
}

// Such as "ended with status 3".
using ExitText = std::array<char, 160>;
ExitText describe(const runtime::AppExit& exit);

}  // namespace tarviod

#endif
