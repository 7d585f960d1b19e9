// tarvio-fleet status: the applications of the boards.
#include <string>
#include <vector>

#include "board_list.h"

namespace client {

namespace {

using fleet_tool::Board;
using fleet_tool::text_in;

std::string or_dash(const std::string& text) { return text.empty() ? "-" : text; }

void add_rows(const Board& board, std::vector<Row>& rows) {
  const std::string state = board.is_online ? "online" : "offline";
  if (!board.apps.is_array() || board.apps.empty()) {
    rows.push_back({{board.name}, {state}, {"-"}, {"-"}, {"-"}, {"-"}});
    return;
  }
  for (const Json& app : board.apps) {
    rows.push_back({{board.name},
                    {state},
                    {or_dash(text_in(app, "name"))},
                    {or_dash(text_in(app, "run_state"))},
                    {or_dash(text_in(app, "state"))},
                    {or_dash(text_in(app, "installed_version"))}});
  }
}

Json object_of(const Board& board) {
  return {{"name", board.name}, {"online", board.is_online}, {"apps", board.apps}};
}

Result run(const Arguments& arguments) {
  return fleet_tool::list_boards(
      arguments, {.titles = {"BOARD", "STATE", "APPLICATION", "RUNS", "STATUS", "VERSION"},
                  .add_rows = add_rows,
                  .object_of = object_of});
}

}  // namespace

constexpr Command kBoardStatusCommand = {
    .word = "status",
    .operands = {.help = fleet_tool::kExpressionHelp},
    .options = fleet_tool::kListOptions,
    .timeout = fleet_tool::kBrokerTimeout,
    .summary = "show the applications of the boards",
    .description =
        "Shows the applications of the boards as each board has said last; of one that is offline, "
        "before it went.",
    .statuses = fleet_tool::kFleetStatuses,
    .run = run,
};

}  // namespace client
