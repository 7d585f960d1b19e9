// What the manager has written of its states and figures, which costs it no request.
#ifndef TARVIO_CLIENT_MANAGER_MANAGER_STATE_H
#define TARVIO_CLIENT_MANAGER_MANAGER_STATE_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "manager/manager_reply.h"
#include "process/directory_watch.h"
#include "runtime/state_file.h"

namespace client {

struct AppFacts {
  std::string name;
  runtime::AppState state = runtime::AppState::kStopped;
  pid_t pid = 0;      // 0 for none
  int64_t since = 0;  // of the state, in seconds since the epoch; 0 before the first start
  int starts = 0;
  runtime::AppExit exit;
  std::string installed;  // version of the package
  std::string running;    // version of the package when it was started; empty for none

  [[nodiscard]] bool is_running() const { return pid != 0; }
  // Its last run has ended by itself, and not with status 0.
  [[nodiscard]] bool has_failed() const;
  [[nodiscard]] bool is_upgraded() const { return !running.empty() && running != installed; }
};

struct ManagerState {
  int descriptors_used = 0;
  int descriptor_limit = 0;
  std::vector<AppFacts> apps;
  std::vector<Status> statuses;

  [[nodiscard]] bool is_short_of_descriptors() const;

  // Null for an application that the manager does not know.
  [[nodiscard]] const AppFacts* find_app(const std::string& name) const;
};

// None when no running manager has written it whole, or it cannot be read.
std::optional<ManagerState> read_state();

// The same, but throws a Failure when there is a file that cannot be read.
std::optional<ManagerState> state_if_any();

// Throws a Failure, of kNoManager when there is none, where nothing can be read.
ManagerState state_of_manager();

// Whether the manager may run as that user: as root, or as the one whose directory holds its state.
bool may_be_manager(uid_t user);

// Waits until a manager has written it, for a positive number of seconds at most.
void await_state(double seconds);

// Each new state is a change.
DirectoryWatch watch_state();

}  // namespace client

#endif
