// tarvio restart
#include <optional>
#include <string>

#include "commands/applications/app_request.h"
#include "commands/commands.h"
#include "manager/manager_state.h"

namespace client {

namespace {

constexpr AppRequest kRestartApp = {
    .exact = nullptr, .part = nullptr, .all = nullptr, .verb = "restart", .done = "restarted"};

Result run(const Arguments& arguments) {
  const std::string name = application_name(arguments.operands.front());
  const bool is_part = arguments.has(kMatch);
  const double seconds = arguments.timeout_seconds;
  Reached reached = reach_app(kStopApp, name, is_part, seconds);
  if (reached.code != 0) return result_of(kRestartApp, reached, arguments);
  const std::optional<ManagerState> before = read_state();
  reached = reach_app(kStartApp, name, is_part, seconds);
  explain_start(before, reached);
  return result_of(kRestartApp, reached, arguments);
}

}  // namespace

constexpr Command kRestartCommand = {
    .word = "restart",
    .operands = kOneApplication,
    .options = kMatchOptions,
    .timeout = kManagerTimeout,
    .need = Need::kAnswer,
    .summary = "stop and start an application",
    .description =
        "Stops an application and starts it again. One that is stopped is started. If the stop "
        "fails, it is not started.",
    .statuses = kManagerStatuses,
    .run = run,
};

}  // namespace client
