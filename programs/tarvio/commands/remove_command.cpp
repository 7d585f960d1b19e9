// tarvio remove
#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "commands/applications/app_request.h"
#include "commands/commands.h"
#include "commands/package_change.h"
#include "manager/manager_client.h"
#include "packages/control_fields.h"
#include "packages/opkg_information.h"
#include "process/failure.h"
#include "process/required_tools.h"
#include "terminal/output.h"

namespace client {

namespace {

constexpr Option kForce = {.name = "force", .help = "remove despite packages that depend on it"};
constexpr Option kKeepRunning = {.name = "keep-running",
                                 .help =
                                     "do not stop an application that was started, nor refresh "
                                     "the manager"};
constexpr std::array kOptions = {kForce, kKeepRunning};
// As the library has them.
constexpr char kForceOptions[] = "--force-depends";

struct Request {
  bool is_forced;
  bool keeps_running;
  bool is_json;
  double timeout_seconds;
};

// False when it was not started, or not by the manager.
bool stop_started(const std::string& name, double seconds) {
  const std::vector<Status> statuses = ask_statuses("status_app", seconds);
  if (find_status(statuses, name) == nullptr) return false;
  const Reached reached = reach_app(kStopApp, name, false, seconds);
  if (reached.code == EINVAL) return false;  // a status from the system log
  if (reached.code != 0) throw Failure(reached.code, "cannot stop it: " + reason_of(reached));
  if (!reached.is_exact) complain(doubt_about(kStopApp, reached));
  return true;
}

// Afterwards it could not be stopped: its stop file would be gone.
bool stop_before_removal(const std::string& name, const Request& request) {
  if (request.keeps_running || !look_up(name).is_application) return false;
  try {
    if (!stop_started(name, request.timeout_seconds)) return false;
  } catch (const Failure& failure) {
    if (failure.status() == kNoManager) return false;
    throw Failure(failure.code(),
                  std::string(failure.what()) + "; use --keep-running to remove it anyway",
                  failure.status());
  }
  // At once: the removal may take minutes, or fail.
  if (!request.is_json) (void)print("stopped " + name + '\n');
  return true;
}

void remove(const std::string& name, const Request& request, Change& change) {
  if (!is_package_name(name)) throw Failure(EINVAL, "not a valid package name");
  require_tools({"opkg"});  // before anything is stopped
  check_place_of_information(name);
  change.was_stopped = stop_before_removal(name, request);
  const WorkDirectory directory;
  const Installed before = look_up(name);
  const OpkgRun run = run_opkg(directory,
                               {.word = "remove",
                                .operand = name,
                                .force_options = request.is_forced ? kForceOptions : nullptr},
                               request.timeout_seconds);
  note_run(run, change);
  change.name = name;
  change.now = before;
  conclude(
      [&] {
        change.now = look_up(name);
        return judge_removal(name, before, change.now, run);
      },
      run, change);
  // It would stop what is to keep running.
  if (before.is_application && !request.keeps_running) refresh_manager(change);
}

Result run(const Arguments& arguments) {
  const Request request = {.is_forced = arguments.has(kForce),
                           .keeps_running = arguments.has(kKeepRunning),
                           .is_json = arguments.has(kJson),
                           .timeout_seconds = arguments.timeout_seconds};
  return change_packages(arguments, "package", [&](const std::string& name, Change& change) {
    remove(name, request, change);
  });
}

}  // namespace

const Command kRemoveCommand = {
    .word = "remove",
    .operands = kPackageNames,
    .options = kOptions,
    .timeout = kToolsTimeout,
    .need = Need::kAnswer,
    .summary = "remove installed packages",
    .description =
        "Removes installed packages with opkg, after stopping those that are started applications. "
        "The result is checked against what is actually installed. A running manager drops the "
        "application.",
    .statuses = kToolsStatuses,
    .run = run,
};

}  // namespace client
