// tarvio-fleet devices: the boards that the broker knows.
#include <array>
#include <ctime>
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

constexpr Option kOnline = {.name = "online", .help = "only boards that are connected"};
constexpr Option kMatch = {.name = "match", .value = "EXPR", .help = "only boards that are meant"};
constexpr std::array kOptions = {kOnline, kMatch, kConfig};

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ",") + word;
  return text.empty() ? "-" : text;
}

Row row_of(const Board& board) {
  const Json& system = board.system;
  const auto count_of = [](const Json& list) {
    return list.is_array() ? std::to_string(list.size()) : "-";
  };
  const std::string agent = fleet_tool::text_in(system, "agent");
  return {
      {board.name},
      {board.is_online ? "online" : "offline", board.is_online ? Colour::kGreen : Colour::kYellow},
      {joined(board.tags())},
      {count_of(board.apps)},
      {count_of(board.packages)},
      {agent.empty() ? "-" : agent}};
}

Result run(const Arguments& arguments) {
  const std::string* const match = arguments.value_of(kMatch);
  const Expression expression(match == nullptr ? "*" : *match);
  const Observer observer(fleet_tool::settings_in(arguments), arguments.timeout_seconds);
  std::vector<Row> rows = {
      header_of({"BOARD", "STATE", "TAGS", "APPLICATIONS", "PACKAGES", "AGENT"})};
  Json json = Json::array();
  for (const auto& [name, board] : observer.boards()) {
    if ((arguments.has(kOnline) && !board.is_online) || !expression.matches(board)) continue;
    rows.push_back(row_of(board));
    json.push_back(json_of(board));
  }
  Result result = {.json = text_of(json)};
  if (rows.size() == 1) {
    result.status = kNoMatch;
    result.complaint = observer.boards().empty() ? "the broker knows no boards" : "no such board";
  } else {
    result.text = render_table(rows, wants_colour(), screen_size().columns);
  }
  return result;
}

}  // namespace

constexpr Command kDevicesCommand = {
    .word = "devices",
    .operands = kNoOperands,
    .options = kOptions,
    .timeout = fleet_tool::kBrokerTimeout,
    .summary = "list the boards",
    .description = "Lists the boards that the broker knows, with what each says of itself.",
    .statuses = fleet_tool::kFleetStatuses,
    .run = run,
};

}  // namespace client
