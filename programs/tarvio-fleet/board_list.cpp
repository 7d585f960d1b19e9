#include "board_list.h"

#include "observer.h"
#include "terminal/output.h"

namespace fleet_tool {

client::Result list_boards(const client::Arguments& arguments, const BoardList& list) {
  const std::string* const match = arguments.value_of(kMatch);
  const Expression expression(match == nullptr ? "*" : *match);
  const Observer observer(settings_in(arguments), arguments.timeout_seconds);
  std::vector<client::Row> rows = {client::header_of(list.titles)};
  Json json = Json::array();
  for (const auto& [name, board] : observer.boards()) {
    if ((arguments.has(kOnline) && !board.is_online) || !expression.matches(board)) continue;
    list.add_rows(board, rows);
    json.push_back(list.object_of(board));
  }
  if (!json.empty()) {
    return {
        .text = client::render_table(rows, client::wants_colour(), client::screen_size().columns),
        .json = client::text_of(json)};
  }
  return {.status = client::kNoMatch,
          .json = client::text_of(json),
          .complaint = observer.boards().empty() ? "the broker knows no boards" : "no such board"};
}

}  // namespace fleet_tool
