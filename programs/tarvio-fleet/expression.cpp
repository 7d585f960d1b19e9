#include "expression.h"

#include <fnmatch.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "commands/command.h"
#include "packages/version_order.h"

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

bool is_true(std::string_view comparison, const std::string& version, const std::string& wanted) {
  const bool is_older = client::is_older(version, wanted);
  const bool is_newer = client::is_older(wanted, version);
  if (comparison == "=") return !is_older && !is_newer;
  if (comparison == "<") return is_older;
  if (comparison == "<=") return !is_newer;
  if (comparison == ">") return is_newer;
  return !is_older;
}

std::function<bool(const Board&)> package_term(std::string_view text) {
  const size_t at = std::min(text.find_first_of("=<>"), text.size());
  const std::string name(text.substr(0, at));
  std::string_view rest = text.substr(at);
  const size_t length = std::min(rest.find_first_not_of("=<>"), rest.size());
  const std::string comparison(rest.substr(0, length));
  const std::string wanted(rest.substr(length));
  constexpr std::string_view kComparisons[] = {"=", "<", "<=", ">", ">="};
  const bool is_known = std::find(std::begin(kComparisons), std::end(kComparisons), comparison) !=
                        std::end(kComparisons);
  if (name.empty() || (!comparison.empty() && (!is_known || wanted.empty()))) {
    throw UsageError("'package:" + std::string(text) +
                     "' is not package:NAME or package:NAME<VERSION");
  }
  return [=](const Board& board) {
    const auto version = board.version_of(name);
    return version && (comparison.empty() || is_true(comparison, *version, wanted));
  };
}

std::function<bool(const Board&)> app_term(std::string_view text) {
  const size_t at = text.find('=');
  const std::string name(text.substr(0, at));
  const std::string state(at == std::string_view::npos ? "" : text.substr(at + 1));
  if (name.empty() || state.empty()) {
    throw UsageError("'app:" + std::string(text) + "' is not app:NAME=STATE");
  }
  return [=](const Board& board) { return board.state_of(name) == state; };
}

std::function<bool(const Board&)> term_of(std::string_view text) {
  if (take_front(text, "!")) {
    return [term = term_of(text)](const Board& board) { return !term(board); };
  }
  if (text.empty()) throw UsageError("a part of EXPR is empty");
  if (take_front(text, "package:")) return package_term(text);
  if (take_front(text, "app:")) return app_term(text);
  if (take_front(text, "tag:")) {
    return [tag = std::string(text)](const Board& board) {
      const std::vector<std::string> tags = board.tags();
      return std::find(tags.begin(), tags.end(), tag) != tags.end();
    };
  }
  if (text == "online") return [](const Board& board) { return board.is_online; };
  if (text == "offline") return [](const Board& board) { return !board.is_online; };
  if (text.find_first_of(":=<> ") != std::string_view::npos) {
    throw UsageError("'" + std::string(text) +
                     "' is no part of EXPR: write a name, tag:, package:, app:, online or offline");
  }
  return [pattern = std::string(text)](const Board& board) {
    return fnmatch(pattern.c_str(), board.name.c_str(), 0) == 0;
  };
}

}  // namespace

Expression::Expression(const std::string& text) {
  for (const std::string_view alternative : pieces_of(text, '|')) {
    std::vector<Term>& terms = alternatives_.emplace_back();
    for (const std::string_view term : pieces_of(alternative, ',')) terms.push_back(term_of(term));
  }
}

bool Expression::matches(const Board& board) const {
  return std::any_of(alternatives_.begin(), alternatives_.end(), [&](const auto& terms) {
    return std::all_of(terms.begin(), terms.end(), [&](const Term& term) { return term(board); });
  });
}

std::vector<std::string> Expression::online_among(const Boards& boards) const {
  std::vector<std::string> names;
  for (const auto& [name, board] : boards) {
    if (board.is_online && matches(board)) names.push_back(name);
  }
  return names;
}

}  // namespace fleet_tool
