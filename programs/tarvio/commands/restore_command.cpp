#include "commands/restore_command.h"

#include <string>
#include <vector>

#include "commands/outcome.h"
#include "flash/restore_run.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"
#include "terminal/progress.h"

namespace client {

int run_restore(const Options& options) {
  const RestoreRequest request = {.file = options.operands.front(),
                                  .work_directory = options.work_directory,
                                  .yes = options.yes,
                                  .force = options.force,
                                  .verify = options.verify,
                                  .timeout_seconds = options.timeout_seconds,
                                  .progress = progress_kind(options.quiet || options.json)};
  std::vector<RestoredArea> restored;
  const Outcome outcome = attempt("restore", request.file, [&] { restore(request, restored); });
  bool is_written = true;
  if (options.json) {
    is_written = print(restored_json(outcome, restored));
  } else if (outcome.code == 0) {
    is_written = print(printable("restored " + names_of(restored, AreaState::kWritten) + " from " +
                                 outcome.operand) +
                       '\n');
  }
  return is_written ? outcome.status : kFailed;
}

}  // namespace client
