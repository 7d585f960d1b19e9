// tarvio check: whether package files fit on the device.
#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "packages/needed_space.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

PackageSpace space_for(const std::string& file, double seconds) {
  const std::string path = readable_file(file);
  const WorkDirectory directory;
  (void)read_package_file(directory, path, seconds);
  return measure_package(directory, path, seconds);
}

std::string line_of(const std::string& file, const Space& space) {
  std::string line = file +
                     (space.fits() ? " fits" : " does not fit in '" + space.directory + "'") +
                     ": needs " + size_words(space.needed_bytes);
  if (space.free_bytes) line += ", free: " + size_words(*space.free_bytes);
  return printable(line) + '\n';
}

Json json_of(const Outcome& outcome, const std::optional<PackageSpace>& space) {
  Json json = json_of("file", outcome);
  if (!space) return json;
  const Space& decisive = space->decisive;
  json.update({{"fits", decisive.fits()},
               {"directory", decisive.directory},
               {"needed_bytes", decisive.needed_bytes},
               {"control_bytes", space->control_bytes},
               {"data_bytes", space->data_bytes},
               {"free_bytes", decisive.free_bytes ? Json(*decisive.free_bytes) : Json()}});
  return json;
}

Result run(const Arguments& arguments) {
  Result result;
  Json json = Json::array();
  for (const std::string& file : arguments.operands) {
    std::optional<PackageSpace> space;
    Outcome outcome =
        attempt("check", file, [&] { space = space_for(file, arguments.timeout_seconds); });
    if (space) {
      if (!space->decisive.fits()) outcome = {file, ENOSPC, "it does not fit", kFailed};
      result.text += line_of(file, space->decisive);
    }
    result.status = std::max(result.status, outcome.status);
    json.push_back(json_of(outcome, space));
  }
  result.json = text_of(json);
  return result;
}

}  // namespace

const Command kCheckCommand = {
    .word = "check",
    .operands = kPackageFiles,
    .options = {},
    .timeout = kToolsTimeout,
    .summary = "check whether package files fit on this device",
    .description =
        "Checks whether package files fit on this device, as 'tarvio install' does: on each file "
        "system there must be space for its files, less those that they replace.",
    .statuses = "0 all fit, 1 one or more do not or failed, 5 a tool timed out",
    .run = run,
};

}  // namespace client
