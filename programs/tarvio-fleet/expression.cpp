#include "expression.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "commands/command.h"
#include "packages/version_order.h"
#include "terminal/printable_text.h"

namespace fleet_tool {

namespace {

using client::UsageError;

std::vector<std::string_view> pieces_of(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

// The text after a beginning, if it has that.
bool take_front(std::string_view& text, std::string_view front) {
  if (!text.starts_with(front)) return false;
  text.remove_prefix(front.size());
  return true;
}

bool compares(const std::string& version, std::string_view comparison, const std::string& wanted) {
  const bool is_older = client::is_older(version, wanted);
  const bool is_newer = client::is_older(wanted, version);
  if (comparison == "=") return !is_older && !is_newer;
  if (comparison == "<") return is_older;
  if (comparison == "<=") return !is_newer;
  if (comparison == ">") return is_newer;
  return !is_older;
}

}  // namespace

Expression::Term Expression::package_term(std::string_view text) {
  const size_t at = std::min(text.find_first_of("=<>"), text.size());
  const std::string_view rest = text.substr(at);
  const size_t length = std::min(rest.find_first_not_of("=<>"), rest.size());
  Term term = {.subject = Term::Subject::kPackage,
               .name = std::string(text.substr(0, at)),
               .comparison = std::string(rest.substr(0, length)),
               .value = std::string(rest.substr(length))};
  constexpr std::string_view kComparisons[] = {"=", "<", "<=", ">", ">="};
  const bool is_known = std::find(std::begin(kComparisons), std::end(kComparisons),
                                  term.comparison) != std::end(kComparisons);
  if (term.name.empty() || (!term.comparison.empty() && (!is_known || term.value.empty()))) {
    throw UsageError("'package:" + std::string(text) +
                     "' is not package:NAME or package:NAME<VERSION");
  }
  return term;
}

Expression::Term Expression::app_term(std::string_view text) {
  const size_t at = std::min(text.find('='), text.size());
  Term term = {.subject = Term::Subject::kApp,
               .name = std::string(text.substr(0, at)),
               .value = std::string(text.substr(std::min(at + 1, text.size())))};
  if (term.name.empty() || term.value.empty()) {
    throw UsageError("'app:" + std::string(text) + "' is not app:NAME=STATE");
  }
  return term;
}

Expression::Term Expression::term_of(std::string_view text) {
  bool wanted = true;
  while (take_front(text, "!")) wanted = !wanted;
  Term term = {.subject = Term::Subject::kName};
  if (text.empty()) throw UsageError("a part of EXPR is empty");
  if (take_front(text, "package:")) {
    term = package_term(text);
  } else if (take_front(text, "app:")) {
    term = app_term(text);
  } else if (take_front(text, "tag:")) {
    term = {.subject = Term::Subject::kTag, .name = std::string(text)};
  } else if (text == "online" || text == "offline") {
    term = {.subject = Term::Subject::kOnline};
    wanted = wanted == (text == "online");
  } else if (text.find_first_of(":=<> ") == std::string_view::npos) {
    term.name = text;
  } else {
    throw UsageError(
        "'" + std::string(text) +
        "' is not a part of EXPR: write a name, tag:, package:, app:, online or offline");
  }
  term.wanted = wanted;
  return term;
}

bool Expression::is_true(const Term& term, const Board& board) {
  switch (term.subject) {
    case Term::Subject::kOnline:
      return board.is_online;
    case Term::Subject::kApp:
      return board.state_of(term.name) == term.value;
    case Term::Subject::kTag: {
      const std::vector<std::string> tags = board.tags();
      return std::find(tags.begin(), tags.end(), term.name) != tags.end();
    }
    case Term::Subject::kPackage: {
      const std::optional<std::string> version = board.version_of(term.name);
      return version &&
             (term.comparison.empty() || compares(*version, term.comparison, term.value));
    }
    case Term::Subject::kName:
      break;
  }
  return fnmatch(term.name.c_str(), board.name.c_str(), 0) == 0;
}

Expression::Expression(const std::string& text) {
  for (const std::string_view alternative : pieces_of(text, '|')) {
    std::vector<Term>& terms = alternatives_.emplace_back();
    for (const std::string_view term : pieces_of(alternative, ',')) terms.push_back(term_of(term));
  }
}

bool Expression::matches(const Board& board) const {
  return std::any_of(alternatives_.begin(), alternatives_.end(), [&](const auto& terms) {
    return std::all_of(terms.begin(), terms.end(),
                       [&](const Term& term) { return is_true(term, board) == term.wanted; });
  });
}

std::vector<std::string> Expression::among(const Boards& boards, bool is_online) const {
  std::vector<std::string> names;
  for (const auto& [name, board] : boards) {
    if (board.is_online == is_online && matches(board)) names.push_back(name);
  }
  return names;
}

std::vector<std::string> Expression::online_among(const Boards& boards) const {
  return among(boards, true);
}

std::vector<std::string> Expression::offline_among(const Boards& boards) const {
  return among(boards, false);
}

std::string offline_words(const std::vector<std::string>& boards) {
  std::string names;
  for (const std::string& board : boards) names += (names.empty() ? "" : ", ") + board;
  return std::to_string(boards.size()) +
         (boards.size() == 1 ? " board is meant and offline: "
                             : " boards are meant and offline: ") +
         client::printable(names);
}

}  // namespace fleet_tool
