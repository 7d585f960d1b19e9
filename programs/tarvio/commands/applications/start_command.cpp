// tarvio start
#include <optional>
#include <string>
#include <vector>

#include "commands/applications/app_request.h"
#include "commands/commands.h"
#include "manager/manager_client.h"
#include "tarvio/status.h"

namespace client {

namespace {

// A start sets this status, unless the application counts as started (oddity 95). Other statuses
// come from the system log.
bool is_of_a_start(const Status& status) {
  return status.state == TQ_STATE_NORMAL && status.detail == "started app";
}

// Whether a start that succeeded did nothing, judged by the statuses before it.
bool was_started(const std::vector<Status>& before, const std::string& name, double seconds) {
  const Status* const was = find_status(before, name);
  if (was == nullptr || is_of_a_start(*was)) return was != nullptr;
  const std::vector<Status> after = ask_statuses("status_app", seconds);
  const Status* const is = find_status(after, name);
  return is != nullptr && *is == *was;
}

Result run(const Arguments& arguments) {
  const std::string name = application_name(arguments.operands.front());
  const double seconds = arguments.timeout_seconds;
  const std::optional<ManagerState> state = read_state();
  std::vector<Status> before;
  if (!state) before = ask_statuses("status_app", seconds);
  Reached reached = reach_app(kStartApp, name, arguments.has(kMatch), seconds);
  explain_start(state, reached);
  if (reached.code != 0) return result_of(kStartApp, reached, arguments);
  if (!state) {
    reached.was_started = was_started(before, reached.name, seconds);
  } else if (reached.is_new_run) {
    reached.was_started = !*reached.is_new_run;
  }
  return result_of(kStartApp, reached, arguments);
}

}  // namespace

constexpr Command kStartCommand = {
    .word = "start",
    .operands = kOneApplication,
    .options = kMatchOptions,
    .timeout = kManagerTimeout,
    .need = Need::kAnswer,
    .summary = "start an application",
    .description =
        "Starts an application. One that runs, or is about to be restarted, stays as it is. A "
        "start fails when the start file cannot be run, and when the manager knows already that it "
        "has ended.",
    .statuses = kManagerStatuses,
    .run = run,
};

}  // namespace client
