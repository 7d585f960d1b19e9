// tarvio-fleet status: the applications of the boards.
#include <array>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "expression.h"
#include "fleet_commands.h"
#include "observer.h"
#include "terminal/output.h"
#include "terminal/text_table.h"

namespace client {

namespace {

using fleet_tool::Board;
using fleet_tool::Expression;
using fleet_tool::kConfig;
using fleet_tool::Observer;
using fleet_tool::text_in;

constexpr Option kMatch = {.name = "match", .value = "EXPR", .help = "only boards that are meant"};
constexpr std::array kOptions = {kMatch, kConfig};

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

Result run(const Arguments& arguments) {
  const std::string* const match = arguments.value_of(kMatch);
  const Expression expression(match == nullptr ? "*" : *match);
  const Observer observer(fleet_tool::settings_in(arguments), arguments.timeout_seconds);
  std::vector<Row> rows = {
      header_of({"BOARD", "STATE", "APPLICATION", "RUNS", "STATUS", "VERSION"})};
  Json json = Json::array();
  for (const auto& [name, board] : observer.boards()) {
    if (!expression.matches(board)) continue;
    add_rows(board, rows);
    json.push_back({{"name", name}, {"online", board.is_online}, {"apps", board.apps}});
  }
  Result result = {.json = text_of(json)};
  if (rows.size() == 1) {
    result.status = kNoMatch;
    result.complaint = "no such board";
  } else {
    result.text = render_table(rows, wants_colour(), screen_size().columns);
  }
  return result;
}

}  // namespace

constexpr Command kBoardStatusCommand = {
    .word = "status",
    .operands = kNoOperands,
    .options = kOptions,
    .timeout = fleet_tool::kBrokerTimeout,
    .summary = "show the applications of the boards",
    .description =
        "Shows the applications of the boards as each board has said last; of one that is offline, "
        "before it went.",
    .statuses = fleet_tool::kFleetStatuses,
    .run = run,
};

}  // namespace client
