// tarvio-fleet history: the rollouts, of all operators.
#include <algorithm>
#include <array>
#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "fleet_commands.h"
#include "observer.h"
#include "rollout.h"
#include "rollout_run.h"
#include "terminal/output.h"
#include "terminal/text_table.h"

namespace client {

namespace {

using fleet_tool::kConfig;
using fleet_tool::Observer;
using fleet_tool::Rollout;

constexpr Option kForget = {.name = "forget",
                            .value = "ID",
                            .offer = Offer::kRollouts,
                            .help = "remove a rollout at the broker and in the files of this user"};
constexpr std::array kOptions = {kForget, kConfig};

std::string local_time(int64_t seconds) {
  const auto time = static_cast<time_t>(seconds);
  tm parts = {};
  std::array<char, 32> text = {};
  if (localtime_r(&time, &parts) == nullptr) return "-";
  (void)strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return text.data();
}

Row row_of(const Rollout& rollout) {
  return {{rollout.id},
          {rollout.state},
          {std::to_string(rollout.count_of(fleet_tool::kDone)) + " of " +
           std::to_string(rollout.board_count())},
          {std::to_string(rollout.failures().size())},
          {rollout.operator_name},
          {local_time(rollout.started)},
          {rollout.url}};
}

Result run(const Arguments& arguments) {
  Observer observer(fleet_tool::settings_in(arguments), arguments.timeout_seconds,
                    Observer::Needs::kBoardsAndRollouts);
  if (const std::string* const id = arguments.value_of(kForget)) {
    if (!arguments.operands.empty()) throw UsageError("--forget ID is used without another ID");
    fleet_tool::forget_rollout(observer, *id);
    return {.json = text_of(Json::array())};
  }
  const std::string wanted = arguments.operands.empty() ? "" : arguments.operands.front();
  std::vector<Row> rows = {
      header_of({"ROLLOUT", "STATE", "DONE", "FAILED", "OPERATOR", "BEGUN", "URL"})};
  Result result;
  Json json = Json::array();
  std::string failures;
  for (const auto& [id, text] : observer.rollouts()) {
    if (!wanted.empty() && id != wanted) continue;
    try {
      const Rollout rollout = fleet_tool::parse_rollout(text);
      rows.push_back(row_of(rollout));
      json.push_back(json_of(rollout));
      if (!wanted.empty()) failures = failure_lines(rollout);
    } catch (const std::runtime_error& error) {
      complain("'" + id + "' " + error.what());
      result.status = kFailed;
    }
  }
  result.json = text_of(json);
  if (rows.size() > 1) {
    result.text = render_table(rows, wants_colour(), screen_size().columns) + failures;
  } else if (result.status == kDone) {
    result.status = wanted.empty() ? kDone : kNoMatch;
    result.complaint = wanted.empty() ? "no rollouts" : "no rollout '" + wanted + "'";
  }
  return result;
}

}  // namespace

constexpr Command kHistoryCommand = {
    .word = "history",
    .operands = {.name = "ID", .max = 1, .offer = Offer::kRollouts},
    .options = kOptions,
    .timeout = fleet_tool::kBrokerTimeout,
    .summary = "list the rollouts, or the failures of one",
    .description = "Lists the rollouts of all operators; of one, also which boards have failed.",
    .statuses = fleet_tool::kFleetStatuses,
    .run = run,
};

}  // namespace client
