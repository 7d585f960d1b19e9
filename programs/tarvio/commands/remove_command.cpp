// tarvio remove
#include <array>
#include <cerrno>
#include <string>

#include "commands/commands.h"
#include "commands/package_change.h"
#include "packages/control_fields.h"
#include "packages/opkg_information.h"
#include "process/failure.h"

namespace client {

namespace {

constexpr Option kForce = {.name = "force", .help = "remove despite packages that depend on it"};
constexpr std::array kOptions = {kForce};
// As the library has them.
constexpr char kForceOptions[] = "--force-depends";

struct Request {
  bool is_forced;
  double timeout_seconds;
};

void remove(const std::string& name, const Request& request, Change& change) {
  if (!is_package_name(name)) throw Failure(EINVAL, "not a valid package name");
  check_place_of_information(name);
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
}

Result run(const Arguments& arguments) {
  const Request request = {.is_forced = arguments.has(kForce),
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
    .summary = "remove installed packages",
    .description =
        "Removes installed packages with opkg. The result is checked against what is "
        "actually installed.",
    .statuses = kToolsStatuses,
    .run = run,
};

}  // namespace client
