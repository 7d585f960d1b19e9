// tarvio-fleet resume: goes on with a rollout.
#include <array>
#include <string>

#include "commands/arguments.h"
#include "fleet_commands.h"
#include "observer.h"
#include "rollout_report.h"
#include "rollout_run.h"

namespace client {

namespace {

using fleet_tool::kConfig;
using fleet_tool::Observer;
using fleet_tool::Rollout;

constexpr std::array kOptions = {kConfig};

Result run(const Arguments& arguments) {
  const fleet_tool::Settings settings = fleet_tool::settings_in(arguments);
  Observer observer(settings, arguments.timeout_seconds, Observer::Needs::kBoardsAndRollouts);
  Rollout rollout = fleet_tool::find_rollout(observer, arguments.operands.front());
  rollout.operator_name = settings.operator_name;
  fleet_tool::RolloutReport report(arguments.has(kJson), arguments.has(kQuiet));
  return {.status = fleet_tool::RolloutRun(observer, rollout, report).run()};
}

}  // namespace

constexpr Command kResumeCommand = {
    .word = "resume",
    .operands = {.name = "ID",
                 .min = 1,
                 .max = 1,
                 .missing = "the ID of the rollout",
                 .offer = Offer::kRollouts},
    .options = kOptions,
    .timeout = fleet_tool::kBrokerTimeout,
    .summary = "go on with a rollout that was interrupted or stopped",
    .description =
        "Goes on with a rollout of any operator that was interrupted or stopped. Boards that have "
        "failed are asked again and no board that has the package is.",
    .statuses = fleet_tool::kFleetStatuses,
    .run = run,
};

}  // namespace client
