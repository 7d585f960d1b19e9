#include "manager/status_table.h"

#include "tarvio/status.h"
#include "terminal/output.h"
#include "terminal/text_table.h"
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

std::string table_of(const std::vector<Status>& statuses) {
  std::vector<Row> rows = {header_of({"NAME", "STATE", "DETAIL"})};
  for (const Status& status : statuses) {
    rows.push_back(
        {{status.name}, {state_word(status.state), colour_of(status.state)}, {status.detail}});
  }
  return render_table(rows, wants_colour());
}

}  // namespace client
