// tarvio metrics
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "manager/app_text.h"
#include "manager/manager_state.h"
#include "manager/openmetrics.h"
#include "terminal/json.h"

namespace client {

namespace {

Result run(const Arguments& /*arguments*/) {
  const ManagerState state = state_of_manager();
  const std::vector<Entry> entries = entries_of(state);
  Json json = {{"open_descriptors", state.descriptors_used},
               {"max_descriptors", state.descriptor_limit},
               {"entries", Json::array()}};
  for (const Entry& entry : entries) json["entries"].push_back(json_of(entry));
  return {.text = openmetrics_of(state, entries), .json = text_of(json)};
}

}  // namespace

constexpr Command kMetricsCommand = {
    .word = "metrics",
    .operands = kNoOperands,
    .options = {},
    .timeout = kNoTimeout,
    .need = Need::kState,
    .summary = "print states and figures for a monitoring system",
    .description =
        "Prints the states and figures of the manager and of all applications in the OpenMetrics "
        "text form, without asking the manager.",
    .statuses = "0 done, 1 failed, 3 no manager",
    .run = run,
};

}  // namespace client
