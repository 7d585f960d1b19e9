// tarvio areas: the areas of the flash memory.
#include <string>
#include <vector>

#include "base/flash_areas.h"
#include "commands/arguments.h"
#include "commands/commands.h"
#include "flash/area_parts.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/text_table.h"
#include "terminal/words.h"

namespace client {

namespace {

Result run(const Arguments& /*arguments*/) {
  std::vector<Row> rows = {header_of({"NAME", "DEVICE", "SIZE", "METHOD"})};
  Json areas = Json::array();
  for (const tarvio::FlashArea& area : tarvio::kFlashAreas) {
    rows.push_back({{area.name},
                    {area.source},
                    {size_words(static_cast<uint64_t>(area.backup_bytes))},
                    {method_of(area)}});
    areas.push_back({{"name", area.name},
                     {"device", area.source},
                     {"size", area.backup_bytes},
                     {"method", method_of(area)}});
  }
  return {.text = render_table(rows, wants_colour()), .json = text_of(areas)};
}

}  // namespace

const Command kAreasCommand = {
    .word = "areas",
    .operands = kNoOperands,
    .options = {},
    .timeout = kNoTimeout,
    .summary = "list the areas of the flash memory",
    .description =
        "Lists the areas of the flash memory: name, device, how much a backup keeps, and "
        "how a backup saves it.",
    .statuses = "0 done, 1 failed",
    .run = run,
};

}  // namespace client
