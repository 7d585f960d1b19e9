// tarvio wait
#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string>

#include "base/deadline.h"
#include "commands/applications/app_request.h"
#include "commands/commands.h"
#include "manager/manager_client.h"
#include "manager/wait_states.h"
#include "process/failure.h"
#include "terminal/json.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr Option kState = {.name = "state",
                           .value = "STATE",
                           .offer = Offer::kWaitStates,
                           .help =
                               "normal, warning, error or gone for its status; running or "
                               "ended for its process",
                           .is_required = true};
constexpr std::array kOptions = {kState};

std::string state_in(const Arguments& arguments) {
  std::string state = *arguments.value_of(kState);
  const auto states = wait_states();
  if (std::find(states.begin(), states.end(), state) != states.end()) return state;
  throw UsageError("unknown state '" + state +
                   "'; use one of normal, warning, error, gone, running, ended");
}

// A manager that ends meanwhile may be followed by another one.
void wait_for(const std::string& name, const std::string& wanted, double seconds) {
  const tarvio::Deadline deadline = tarvio::Deadline::after_seconds(seconds);
  (void)state_of_manager();  // there must be a manager to begin with
  std::optional<ManagerState> state;
  const DirectoryWatch watch = watch_state();
  do {
    state = state_if_any();
    if (state && is_in_state(*state, name, wanted)) return;
  } while (watch.wait(deadline));
  state = state_of_manager();
  throw Failure(ETIMEDOUT,
                "'" + name + "' did not become " + wanted + " in time: " +
                    present_state(*state, name) + "; use --timeout SECONDS to wait longer",
                kTimeout);
}

Result run(const Arguments& arguments) {
  const std::string name = application_name(arguments.operands.front());
  const std::string wanted = state_in(arguments);
  wait_for(name, wanted, arguments.timeout_seconds);
  return {.text = printable(name) + " is " + wanted + '\n',
          .json = text_of({{"name", name}, {"state", wanted}})};
}

}  // namespace

constexpr Command kWaitCommand = {
    .word = "wait",
    .operands = {.name = "NAME",
                 .min = 1,
                 .max = 1,
                 .missing = "the NAME of the application",
                 .offer = Offer::kApplications},
    .options = kOptions,
    .timeout = {30, timeout_option("give up when the state is not reached by then; default 30, 0 "
                                   "waits forever")},
    .need = Need::kState,
    .summary = "wait until an application has a state",
    .description =
        "Waits until the application with exactly this NAME has a state, without asking the "
        "manager. gone: it has no status, and neither has an unknown NAME. ended: it was started, "
        "and neither runs nor is restarted.",
    .statuses = "0 the state is reached, 1 failed, 3 no manager, 5 not reached in time",
    .run = run,
};

}  // namespace client
