// tarvio is-running
#include <optional>
#include <string>

#include "commands/applications/app_request.h"
#include "commands/commands.h"
#include "manager/app_text.h"
#include "manager/manager_state.h"
#include "process/failure.h"
#include "terminal/json.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

Result unknown(const std::string& name, const std::string& why) {
  return {.status = kUnknown,
          .json = text_of({{"name", name}, {"running", nullptr}, {"pid", nullptr}}),
          .complaint = "cannot know whether '" + name + "' is running: " + why};
}

Result run(const Arguments& arguments) {
  const std::string name = application_name(arguments.operands.front());
  std::optional<ManagerState> state;
  try {
    state = state_of_manager();
  } catch (const Failure& failure) {
    return unknown(name, failure.what());
  }
  const AppFacts* const app = state->find_app(name);
  if (app == nullptr) {
    return unknown(name, "no such application; see 'tarvio list --category application'");
  }
  const bool is_running = app->is_running();
  const std::string words = is_running ? "running, process " + std::to_string(app->pid)
                                       : "not running: " + state_word(*app);
  return {.status = is_running ? kDone : kNotRunning,
          .text = printable(name) + " is " + words + '\n',
          .json = text_of({{"name", name},
                           {"running", is_running},
                           {"pid", is_running ? Json(app->pid) : Json()}})};
}

}  // namespace

constexpr Command kIsRunningCommand = {
    .word = "is-running",
    .operands = {.name = "NAME",
                 .min = 1,
                 .max = 1,
                 .missing = "the NAME of the application",
                 .offer = Offer::kApplications},
    .options = {},
    .timeout = kNoTimeout,
    .need = Need::kState,
    .summary = "test whether an application is running",
    .description =
        "Tests whether the application with exactly this NAME is running, without asking the "
        "manager. With --quiet the exit status says it, and only errors are printed.",
    .statuses = "0 running, 3 not running, 4 not known: no manager, or no such application",
    .run = run,
};

}  // namespace client
