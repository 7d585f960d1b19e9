#include "commands/backup_command.h"

#include <string>

#include "commands/outcome.h"
#include "flash/backup_run.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"
#include "terminal/progress.h"

namespace client {

namespace {

std::string line_of(const Outcome& outcome, const SavedImage& image) {
  std::string names;
  for (const SavedArea& area : image.areas) names += (names.empty() ? "" : ", ") + area.name;
  return printable("saved " + names + " in " + outcome.operand + ", " +
                   size_words(image.size_bytes)) +
         '\n';
}

}  // namespace

int run_backup(const Options& options) {
  const BackupRequest request = {.areas = options.operands,
                                 .file = options.output,
                                 .work_directory = options.work_directory,
                                 .overwrite = options.overwrite,
                                 .verify = options.verify,
                                 .timeout_seconds = options.timeout_seconds,
                                 .progress = progress_kind(options.quiet || options.json)};
  SavedImage image;
  const Outcome outcome = attempt("write", options.output, [&] { back_up(request, image); });
  bool is_written = true;
  if (options.json) {
    is_written = print(saved_json(outcome, image));
  } else if (outcome.code == 0) {
    is_written = print(line_of(outcome, image));
  }
  return is_written ? outcome.status : kFailed;
}

}  // namespace client
