// tarvio-fleet devices: the boards that the broker knows.
#include <string>
#include <vector>

#include "board_list.h"

namespace client {

namespace {

using fleet_tool::Board;

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ",") + word;
  return text.empty() ? "-" : text;
}

void add_row(const Board& board, std::vector<Row>& rows) {
  const auto count_of = [](const Json& list) {
    return list.is_array() ? std::to_string(list.size()) : "-";
  };
  const std::string agent = fleet_tool::text_in(board.system, "agent");
  rows.push_back(
      {{board.name},
       {board.is_online ? "online" : "offline", board.is_online ? Colour::kGreen : Colour::kYellow},
       {joined(board.tags())},
       {count_of(board.apps)},
       {count_of(board.packages)},
       {agent.empty() ? "-" : agent}});
}

Result run(const Arguments& arguments) {
  return fleet_tool::list_boards(
      arguments, {.titles = {"BOARD", "STATE", "TAGS", "APPLICATIONS", "PACKAGES", "AGENT"},
                  .add_rows = add_row,
                  .object_of = fleet_tool::json_of});
}

}  // namespace

constexpr Command kDevicesCommand = {
    .word = "devices",
    .operands = {.help = fleet_tool::kExpressionHelp},
    .options = fleet_tool::kListOptions,
    .timeout = fleet_tool::kBrokerTimeout,
    .summary = "list the boards",
    .description = "Lists the boards that the broker knows, with what each says of itself.",
    .statuses = fleet_tool::kFleetStatuses,
    .run = run,
};

}  // namespace client
