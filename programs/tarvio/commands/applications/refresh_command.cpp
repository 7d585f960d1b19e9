// tarvio refresh
#include <cerrno>
#include <optional>
#include <string>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "manager/refresh_request.h"
#include "process/failure.h"
#include "terminal/json.h"
#include "terminal/words.h"

namespace client {

namespace {

Result run(const Arguments& arguments) {
  const std::optional<Refreshed> refreshed = ask_refresh(arguments.timeout_seconds);
  if (!refreshed) {
    throw Failure(EPROTO, "the running manager cannot refresh; restart or update tarviod");
  }
  const std::string message = result_words(refreshed->code);
  Result result = {.json = text_of({{"code", refreshed->code},
                                    {"message", message},
                                    {"added", refreshed->added},
                                    {"removed", refreshed->removed},
                                    {"changed", refreshed->changed}})};
  if (refreshed->code != 0) {
    result.status = kFailed;
    result.complaint = "the manager cannot refresh its applications: " + message + " (" +
                       std::to_string(refreshed->code) + ")";
    return result;
  }
  result.text = "refreshed the applications: " + std::to_string(refreshed->added) + " added, " +
                std::to_string(refreshed->removed) + " removed, " +
                std::to_string(refreshed->changed) + " changed\n";
  return result;
}

}  // namespace

constexpr Command kRefreshCommand = {
    .word = "refresh",
    .operands = kNoOperands,
    .options = {},
    .timeout = kManagerTimeout,
    .need = Need::kAnswer,
    .summary = "make installed applications known to the manager",
    .description =
        "Has the manager look which applications are installed. A running application that is not "
        "installed any more is stopped; one that was upgraded keeps running until it is restarted. "
        "'tarvio install' and 'tarvio remove' do this by themselves.",
    .statuses = kManagerStatuses,
    .run = run,
};

}  // namespace client
