#include "areas_command.h"

#include <string>
#include <vector>

#include "exit_status.h"
#include "flash_areas.h"
#include "json.h"
#include "output.h"
#include "table.h"
#include "text.h"

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
