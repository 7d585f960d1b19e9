#include "manager/status_text.h"

#include "tarvio/status.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

Colour colour_of(int32_t state) {
  switch (state) {
    case TQ_STATE_NORMAL:
      return Colour::kGreen;
    case TQ_STATE_ERROR:
      return Colour::kRed;
    default:
      return Colour::kYellow;
  }
}

}  // namespace

std::vector<StatusChange> changes_between(const std::vector<Status>& before,
                                          const std::vector<Status>& now) {
  std::vector<StatusChange> changes;
  for (const Status& status : before) {
    if (find_status(now, status.name) == nullptr) changes.push_back({status.name, std::nullopt});
  }
  for (const Status& status : now) {
    const Status* const known = find_status(before, status.name);
    if (known == nullptr || *known != status) changes.push_back({status.name, status});
  }
  return changes;
}

Cell state_cell(int32_t state) { return {state_word(state), colour_of(state)}; }

std::string table_of(const std::vector<Status>& statuses, size_t max_width) {
  std::vector<Row> rows = {header_of({"NAME", "STATE", "DETAIL"})};
  for (const Status& status : statuses) {
    rows.push_back({{status.name}, state_cell(status.state), {status.detail}});
  }
  return render_table(rows, wants_colour(), max_width);
}

std::string change_line(const StatusChange& change) {
  std::string line = printable(change.name) + "  ";
  if (!change.now) return line + "gone\n";
  line += state_word(change.now->state);
  if (!change.now->detail.empty()) line += "  " + printable(change.now->detail);
  return line + '\n';
}

}  // namespace client
