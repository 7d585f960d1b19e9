// Which boards are meant: the EXPR of --to and --match.
#ifndef TARVIO_FLEET_TOOL_EXPRESSION_H
#define TARVIO_FLEET_TOOL_EXPRESSION_H

#include <string>
#include <string_view>
#include <vector>

#include "board.h"

namespace fleet_tool {

inline constexpr char kExpressionHelp[] =
    "EXPR says which boards are meant: a name, in which * and ? stand for other letters; tag:NAME; "
    "package:NAME, also with =VERSION, <VERSION, <=VERSION, >VERSION or >=VERSION; app:NAME=STATE, "
    "with a state such as running, stopped or ended; online; offline. A '!' in front means the "
    "others. Of several with a comma between them all must be true, and of several such lists with "
    "a '|' between them one.";

// "2 boards are meant and offline: ...".
std::string offline_words(const std::vector<std::string>& boards);

class Expression {
 public:
  // Throws a UsageError.
  explicit Expression(const std::string& text);

  [[nodiscard]] bool matches(const Board& board) const;
  // The names of those that can be asked for something, and of those that cannot now.
  [[nodiscard]] std::vector<std::string> online_among(const Boards& boards) const;
  [[nodiscard]] std::vector<std::string> offline_among(const Boards& boards) const;

 private:
  // What one part of the text asks of a board.
  struct Term {
    enum class Subject { kName, kTag, kPackage, kApp, kOnline };
    Subject subject = Subject::kName;
    bool wanted = true;           // what must come of the comparison
    std::string name = {};        // of the subject; a pattern for kName
    std::string comparison = {};  // of the version of a package, empty for none
    std::string value = {};       // a version or a state
  };

  static Term package_term(std::string_view text);
  static Term app_term(std::string_view text);
  static Term term_of(std::string_view text);
  [[nodiscard]] std::vector<std::string> among(const Boards& boards, bool is_online) const;
  static bool is_true(const Term& term, const Board& board);

  std::vector<std::vector<Term>> alternatives_;
};

}  // namespace fleet_tool

#endif
