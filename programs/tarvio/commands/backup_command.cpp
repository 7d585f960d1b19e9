// tarvio backup: areas of the flash memory into an image package.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "commands/flash_options.h"
#include "flash/area_parts.h"
#include "flash/backup_run.h"
#include "packages/package_file.h"
#include "process/paths.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr Option kTo = {.name = "to",
                        .value = "FILE",
                        .offer = Offer::kPackageFiles,
                        .help = "the image package",
                        .is_required = true};
constexpr Option kOverwrite = {.name = "overwrite", .help = "replace FILE if it exists"};
constexpr std::array kOptions = {kTo, kWorkDirectory, kOverwrite, kVerify, without_help(kNoVerify)};

void check_areas(const std::vector<std::string>& areas) {
  for (auto area = areas.begin(); area != areas.end(); ++area) {
    if (find_area(*area) == nullptr) {
      throw UsageError("unknown flash area '" + *area + "'; 'tarvio areas' lists them");
    }
    if (std::find(areas.begin(), area, *area) != area) {
      throw UsageError("duplicate flash area '" + *area + "'");
    }
  }
}

BackupRequest request_in(const Arguments& arguments) {
  BackupRequest request = {.areas = arguments.operands,
                           .file = *arguments.value_of(kTo),
                           .work_directory = given_work_directory(arguments),
                           .overwrite = arguments.has(kOverwrite),
                           .verify = wants_verification(arguments, false),
                           .timeout_seconds = arguments.timeout_seconds,
                           .progress = progress_in(arguments)};
  check_areas(request.areas);
  if (!has_plain_name(request.file)) {
    throw UsageError("file name '" + request.file +
                     "' may only contain letters, digits and . _ + -");
  }
  if (!is_package_file_name(request.file)) {
    throw UsageError("file name '" + request.file + "' must end in .tbx");
  }
  return request;
}

Json json_of(const Outcome& outcome, const SavedImage& image) {
  Json json = json_of("file", outcome);
  json["size"] = image.size_bytes;
  json["areas"] = Json::array();
  for (const SavedArea& area : image.areas) {
    json["areas"].push_back({{"name", area.name},
                             {"size", area.size_bytes},
                             {"verified", area.is_verified},
                             {"failure", or_null(area.failure)}});
  }
  return json;
}

std::string line_of(const std::string& file, const SavedImage& image) {
  std::string names;
  for (const SavedArea& area : image.areas) names += (names.empty() ? "" : ", ") + area.name;
  return printable("saved " + names + " in " + file + ", " + size_words(image.size_bytes)) + '\n';
}

Result run(const Arguments& arguments) {
  const BackupRequest request = request_in(arguments);
  SavedImage image;
  const Outcome outcome = attempt("back up to", request.file, [&] { back_up(request, image); });
  return {.status = outcome.status,
          .text = outcome.code == 0 ? line_of(request.file, image) : "",
          .json = text_of(json_of(outcome, image))};
}

}  // namespace

const Command kBackupCommand = {
    .word = "backup",
    .operands = {.name = "AREA",
                 .min = 1,
                 .max = kAnyNumber,
                 .missing = "the name of an AREA",
                 .offer = Offer::kAreas},
    .options = kOptions,
    .timeout = kFlashTimeout,
    .summary = "save areas of the flash memory into an image package",
    .description =
        "Saves areas of the flash memory, which 'tarvio areas' lists, into an image package. FILE "
        "appears when it is complete: a failure or a power cut leaves what was there before. One "
        "backup or restore runs at a time.",
    .statuses = "0 done, 1 failed, 5 a step timed out",
    .run = run,
};

}  // namespace client
