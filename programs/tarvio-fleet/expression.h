// Which boards are meant: the EXPR of --to and --match.
#ifndef TARVIO_FLEET_TOOL_EXPRESSION_H
#define TARVIO_FLEET_TOOL_EXPRESSION_H

#include <functional>
#include <string>
#include <vector>

#include "board.h"

namespace fleet_tool {

inline constexpr char kExpressionHelp[] =
    "EXPR says which boards are meant: a name, in which * and ? stand for other letters; tag:NAME; "
    "package:NAME, also with =VERSION, <VERSION, <=VERSION, >VERSION or >=VERSION; app:NAME=STATE, "
    "with a state such as running, stopped or ended; online; offline. A '!' in front means the "
    "others. Of several with a comma between them all must be true, and of several such lists with "
    "a '|' between them one.";

class Expression {
 public:
  // Throws a UsageError.
  explicit Expression(const std::string& text);

  [[nodiscard]] bool matches(const Board& board) const;
  // The names of those that can be asked for something.
  [[nodiscard]] std::vector<std::string> online_among(const Boards& boards) const;

 private:
  using Term = std::function<bool(const Board&)>;

  std::vector<std::vector<Term>> alternatives_;
};

}  // namespace fleet_tool

#endif
