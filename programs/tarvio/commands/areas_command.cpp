#include "commands/areas_command.h"

#include <string>
#include <vector>

#include "flash/area_parts.h"
#include "process/exit_status.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"
#include "terminal/text_table.h"

namespace client {

namespace {

std::string table_of_areas() {
  std::vector<Row> rows = {header_of({"NAME", "DEVICE", "SIZE", "METHOD"})};
  for (const tarvio::FlashArea& area : tarvio::kFlashAreas) {
    rows.push_back({{area.name},
                    {area.source},
                    {size_words(static_cast<uint64_t>(area.backup_bytes))},
                    {method_of(area)}});
  }
  return render_table(rows, wants_colour());
}

}  // namespace

int run_areas(const Options& options) {
  return print(options.json ? areas_json() : table_of_areas()) ? kDone : kFailed;
}

}  // namespace client
