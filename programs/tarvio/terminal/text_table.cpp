#include "terminal/text_table.h"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr size_t kGap = 2;
constexpr std::string_view kReset = "\x1b[0m";

std::string_view sequence_of(Colour colour) {
  switch (colour) {
    case Colour::kBold:
      return "\x1b[1m";
    case Colour::kGreen:
      return "\x1b[32m";
    case Colour::kYellow:
      return "\x1b[33m";
    case Colour::kRed:
      return "\x1b[31m";
    case Colour::kNone:
      break;
  }
  return {};
}

std::vector<Row> make_printable(std::vector<Row> rows) {
  for (Row& row : rows) {
    for (Cell& cell : row) cell.text = printable(cell.text);
  }
  return rows;
}

std::vector<size_t> widths_of(const std::vector<Row>& rows) {
  std::vector<size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], display_width(row[column].text));
    }
  }
  return widths;
}

void shrink(std::vector<size_t>& widths, size_t max_width) {
  if (widths.empty()) return;
  size_t width = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
  for (; width > max_width; --width) {
    size_t& widest = *std::max_element(widths.begin(), widths.end());
    if (widest <= 1) return;
    --widest;
  }
}

void append_cell(std::string& text, const Cell& cell, bool coloured) {
  const std::string_view sequence = coloured ? sequence_of(cell.colour) : std::string_view();
  text += sequence;
  text += cell.text;
  if (!sequence.empty()) text += kReset;
}

}  // namespace

Row header_of(const std::vector<const char*>& titles) {
  Row row;
  for (const char* title : titles) row.push_back({title, Colour::kBold});
  return row;
}

std::string render_table(const std::vector<Row>& rows, bool coloured, size_t max_width) {
  std::vector<Row> shown = make_printable(rows);
  std::vector<size_t> widths = widths_of(shown);
  shrink(widths, max_width);
  std::string text;
  for (Row& row : shown) {
    size_t missing = 0;  // spaces that are due before the next text, so that none ends a line
    for (size_t column = 0; column < row.size(); ++column) {
      Cell& cell = row[column];
      cell.text = shortened(cell.text, widths[column]);
      if (!cell.text.empty()) {
        text.append(missing, ' ');
        missing = 0;
        append_cell(text, cell, coloured);
      }
      missing += widths[column] - display_width(cell.text) + kGap;
    }
    text += '\n';
  }
  return text;
}

}  // namespace client
