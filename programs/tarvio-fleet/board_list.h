// What the commands that list boards have in common.
#ifndef TARVIO_FLEET_TOOL_BOARD_LIST_H
#define TARVIO_FLEET_TOOL_BOARD_LIST_H

#include <array>
#include <vector>

#include "board.h"
#include "commands/arguments.h"
#include "expression.h"
#include "fleet_commands.h"
#include "terminal/text_table.h"

namespace fleet_tool {

inline constexpr client::Option kOnline = {.name = "online",
                                           .help = "only boards that are connected"};
inline constexpr client::Option kMatch = {.name = "match",
                                          .value = "EXPR",
                                          .offer = client::Offer::kBoards,
                                          .help = "only boards that EXPR selects"};
inline constexpr std::array kListOptions = {kOnline, kMatch, kConfig};

struct BoardList {
  std::vector<const char*> titles;
  void (*add_rows)(const Board&, std::vector<client::Row>&);
  Json (*object_of)(const Board&);
};

// Those that the options select, as a table and as JSON.
client::Result list_boards(const client::Arguments& arguments, const BoardList& list);

}  // namespace fleet_tool

#endif
