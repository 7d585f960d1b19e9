// tarvio restore: an image package onto the flash memory.
#include <array>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "commands/flash_options.h"
#include "flash/restore_run.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr Option kYes = {.name = "yes", .help = "do not ask for confirmation"};
constexpr Option kForce = {.name = "force",
                           .help = "also write what the system runs from or has mounted"};
constexpr std::array kOptions = {kYes, kForce, kNoVerify, without_help(kVerify), kWorkDirectory};

const char* word_of(AreaState state) {
  switch (state) {
    case AreaState::kUntouched:
      return "untouched";
    case AreaState::kUnfinished:
      return "unfinished";
    default:
      return "written";
  }
}

Json json_of(const Outcome& outcome, const std::vector<RestoredArea>& areas) {
  Json json = json_of("file", outcome);
  json["areas"] = Json::array();
  for (const RestoredArea& area : areas) {
    json["areas"].push_back({{"name", area.name},
                             {"size", area.size_bytes},
                             {"state", word_of(area.state)},
                             {"verified", area.is_verified},
                             {"failure", or_null(area.failure)}});
  }
  return json;
}

std::string line_of(const std::string& file, const std::vector<RestoredArea>& areas) {
  return printable("restored " + names_of(areas, AreaState::kWritten) + " from " + file) + '\n';
}

Result run(const Arguments& arguments) {
  const RestoreRequest request = {.file = arguments.operands.front(),
                                  .work_directory = given_work_directory(arguments),
                                  .yes = arguments.has(kYes),
                                  .force = arguments.has(kForce),
                                  .verify = wants_verification(arguments, true),
                                  .timeout_seconds = arguments.timeout_seconds,
                                  .progress = progress_in(arguments)};
  std::vector<RestoredArea> areas;
  const Outcome outcome = attempt("restore", request.file, [&] { restore(request, areas); });
  return {.status = outcome.status,
          .text = outcome.code == 0 ? line_of(request.file, areas) : "",
          .json = text_of(json_of(outcome, areas))};
}

}  // namespace

const Command kRestoreCommand = {
    .word = "restore",
    .operands = {.name = "FILE",
                 .min = 1,
                 .max = 1,
                 .missing = "the image package FILE",
                 .offer = Offer::kPackageFiles},
    .options = kOptions,
    .timeout = kFlashTimeout,
    .summary = "write an image package to the flash memory",
    .description =
        "Erases the areas of the flash memory that an image package holds, and rewrites them. The "
        "package and, as /etc/tarvio/tarvio.conf demands, its signature are checked first. If one "
        "area fails, the others are still written. Each area is "
        "read again and compared.",
    .statuses = kGuardedStatuses,
    .run = run,
};

}  // namespace client
