// Tables for people.
#ifndef TARVIO_CLIENT_TERMINAL_TEXT_TABLE_H
#define TARVIO_CLIENT_TERMINAL_TEXT_TABLE_H

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace client {

enum class Colour { kNone, kBold, kGreen, kYellow, kRed };

struct Cell {
  std::string text;  // as it came; made printable when it is shown
  Colour colour = Colour::kNone;
};

using Row = std::vector<Cell>;

// The row of the titles.
Row header_of(const std::vector<const char*>& titles);

// One line per row, the columns aligned and two spaces apart. Every row has as many cells as the
// first, which is the header. The widest columns are cut where a line would be longer than so many
// columns of a terminal.
std::string render_table(const std::vector<Row>& rows, bool coloured,
                         size_t max_width = std::numeric_limits<size_t>::max());

}  // namespace client

#endif
