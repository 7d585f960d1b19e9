// What comes from a broker, to a board and to the operator's tool, and what a board has kept of it.
// The first byte of an input says which.
#include <algorithm>
#include <array>
#include <exception>
#include <string_view>

#include "board.h"
#include "board_request.h"
#include "commands/command.h"
#include "expression.h"
#include "fleet/payload.h"
#include "fleet/topics.h"
#include "fuzzer.h"
#include "board/opkg_records.h"
#include "request_journal.h"
#include "rollout.h"
#include "support/files.h"

namespace tarvio_fuzz {
namespace {

using agent::Journal;
using agent::JournalEntry;
using agent::Request;
using client::Json;

constexpr std::array kStates = {JournalEntry::State::kWaiting, JournalEntry::State::kRunning,
                                JournalEntry::State::kAnswered, JournalEntry::State::kClosed};

std::string check_request(const std::string& payload) {
  try {
    const Request request = agent::parse_request(payload, true);
    if (!fleet::is_name(request.id) || agent::id_in(payload) != request.id) return "another id";
    if (request.words.empty() || request.words[0] != request.command) return "another command";
    for (size_t at = 1; at < request.words.size(); ++at) {
      const std::string& word = request.words[at];
      const bool is_own = word == "--lines" || word == "--force" || word == "--require-signature";
      if (word.empty() || (word[0] == '-' && !is_own)) return "an option: " + word;
      if (word.find('\0') != std::string::npos) return "a word that would be cut";
    }
    if (request.command == "install" && request.words.back() != "--require-signature") {
      return "an installation without a signature";
    }
    const std::string url = request.download.url + request.upload.url;
    if (!url.empty() && !url.starts_with("https://")) return "another protocol";
  } catch (const agent::Refusal&) {
    (void)agent::id_in(payload);
  }
  return "";
}

std::string check_journal(const std::string& text) {
  static const tarvio_test::TempDir directory;
  const std::string file = directory / "journal";
  tarvio_test::write_file(file, text);
  std::array<std::vector<std::string>, kStates.size()> ids;
  {
    const Journal journal(file);
    for (size_t at = 0; at < kStates.size(); ++at) ids[at] = journal.ids_in(kStates[at]);
  }
  Journal journal(file);
  if (journal.damaged_lines() != 0) return "lines that are not whole are kept";
  for (size_t at = 0; at < kStates.size(); ++at) {
    if (journal.ids_in(kStates[at]) != ids[at]) return "other requests after a further start";
    for (const std::string& id : ids[at]) {
      const JournalEntry& entry = *journal.find(id);
      if (entry.askers.empty()) return "nobody has asked";
      const bool is_answered = entry.state >= JournalEntry::State::kAnswered;
      if (is_answered && !Json::parse(entry.answer).is_object()) return "no answer";
    }
  }
  if (journal.find("fresh") != nullptr) return "";
  journal.add("fresh", "{}", 1, {.topic = "t", .correlation = "c"});
  const std::vector<std::string> waiting = Journal(file).ids_in(JournalEntry::State::kWaiting);
  return waiting.empty() || waiting.back() != "fresh" ? "a request is lost" : "";
}

// A line for each message: the topic, a blank and the payload.
fleet_tool::Boards boards_in(const std::string& text) {
  fleet_tool::Boards boards;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const size_t blank = std::min(line.find(' '), line.size());
    fleet_tool::take({.topic = std::string(line.substr(0, blank)),
                      .payload = std::string(line.substr(std::min(blank + 1, line.size())))},
                     boards);
  }
  return boards;
}

std::string check_boards(const std::string& text) {
  for (const auto& [name, board] : boards_in(text)) {
    if (!fleet::is_name(name)) return "no name: " + name;
    (void)board.tags();
    (void)board.version_of("clock");
    (void)board.state_of("clock");
    if (!Json::parse(fleet::payload_of(json_of(board))).is_object()) return "no JSON of a board";
  }
  return "";
}

// An expression, and messages of boards.
std::string check_expression(const std::string& input) {
  const std::string text = input.substr(0, input.find('\n'));
  const fleet_tool::Boards boards =
      boards_in(input.substr(std::min(text.size() + 1, input.size())));
  try {
    const fleet_tool::Expression expression(text);
    const bool is_single = text.find_first_of(",|!") == std::string::npos;
    for (const auto& [name, board] : boards) {
      const bool matches = expression.matches(board);
      if (is_single && fleet_tool::Expression("!" + text).matches(board) == matches) {
        return "a board that is meant either way, or not at all";
      }
    }
  } catch (const client::UsageError&) {
  }
  return "";
}

std::string check_rollout(const std::string& text) {
  try {
    const fleet_tool::Rollout rollout = fleet_tool::parse_rollout(text);
    const std::string written = json_of(rollout).dump();
    const std::string again = json_of(fleet_tool::parse_rollout(written)).dump();
    (void)fleet_tool::failure_lines(rollout);
    return written == again ? "" : "another rollout: " + again;
  } catch (const std::runtime_error&) {
    return "";
  }
}

std::string check_records(const std::string& text) {
  const std::vector<std::string> unfinished = agent::unfinished_in(text, {{"clock", "1.0"}});
  return std::is_sorted(unfinished.begin(), unfinished.end()) ? "" : "packages twice";
}

std::string check_fleet(const std::string& input) {
  const std::string rest = input.substr(std::min<size_t>(1, input.size()));
  switch (input.empty() ? '\0' : input[0]) {
    case 'r':
      return check_request(rest);
    case 'j':
      return check_journal(rest);
    case 'b':
      return check_boards(rest);
    case 'e':
      return check_expression(rest);
    case 'w':
      return check_rollout(rest);
    case 'o':
      return check_records(rest);
    default:
      return "";
  }
}

}  // namespace

const Fuzzer kFleet = {.corpus = "fleet", .check = check_fleet};

}  // namespace tarvio_fuzz
