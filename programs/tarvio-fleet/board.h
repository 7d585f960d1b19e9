// What the broker keeps of a board.
#ifndef TARVIO_FLEET_TOOL_BOARD_H
#define TARVIO_FLEET_TOOL_BOARD_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/session.h"
#include "terminal/json.h"

namespace fleet_tool {

using client::Json;

struct Board {
  std::string name;
  bool is_online = false;
  Json system;    // null until it has said it
  Json apps;      // null where no manager runs
  Json packages;  // null until it has said it

  [[nodiscard]] std::vector<std::string> tags() const;
  // Of an installed package; none where it is not installed.
  [[nodiscard]] std::optional<std::string> version_of(std::string_view package) const;
  // "running", "stopped", ... as tarvio has it; none where there is no such application.
  [[nodiscard]] std::optional<std::string> state_of(std::string_view app) const;
};

using Boards = std::map<std::string, Board>;

// Takes a message of a board in, if it is one of what it keeps at the broker.
void take(const fleet::Message& message, Boards& boards);

// A text member of an object; empty for none.
std::string text_in(const Json& object, const char* name);

// For --json.
Json json_of(const Board& board);

}  // namespace fleet_tool

#endif
