#include "commands/package_change.h"

#include <algorithm>

#include "commands/commands.h"
#include "manager/manager_state.h"
#include "manager/refresh_request.h"
#include "process/failure.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

Json json_of(const Change& change, const char* operand_key) {
  Json json = json_of(operand_key, change.outcome);
  if (change.was_stopped) json["was_stopped"] = *change.was_stopped;
  if (change.name.empty()) return json;
  json["name"] = change.name;
  json["installed_version"] = change.now.version ? Json(*change.now.version) : Json();
  json["opkg_code"] = change.opkg_code;
  json["opkg_lines"] = change.opkg_lines;
  json["refreshed"] = change.is_refreshed ? Json(*change.is_refreshed) : Json();
  return json;
}

// What the manager knows of an application after a refresh.
std::string known_words(const Change& change) {
  if (!change.now.version) return "the manager has dropped " + change.name;
  std::string words = "the manager knows " + change.name + " now";
  const std::optional<ManagerState> state = read_state();
  const AppFacts* const app = state ? state->find_app(change.name) : nullptr;
  if (app != nullptr && app->is_upgraded()) {
    words += "; " + app->running + " runs until 'tarvio restart " + change.name + "'";
  }
  return words;
}

}  // namespace

Result change_packages(const Arguments& arguments, const char* operand_key,
                       const std::function<void(const std::string&, Change&)>& work) {
  Result result;
  Json json = Json::array();
  for (const std::string& operand : arguments.operands) {
    Change change;
    change.outcome = attempt(arguments.command->word, operand, [&] { work(operand, change); });
    if (change.outcome.code == 0) {
      change.outcome.message = change.fact;
      // At once: the next one may take minutes.
      const bool is_written = arguments.has(kJson) || print(printable(change.fact) + '\n');
      if (!is_written) result.status = std::max(result.status, kFailed);
    }
    result.status = std::max(result.status, change.outcome.status);
    json.push_back(json_of(change, operand_key));
  }
  result.json = text_of(json);
  return result;
}

void note_run(const OpkgRun& run, Change& change) {
  change.opkg_code = run.code;
  change.opkg_lines = run.lines;
  change.opkg_lines.insert(change.opkg_lines.end(), run.errors.begin(), run.errors.end());
}

void conclude(const std::function<Verdict()>& judge, const OpkgRun& run, Change& change) {
  try {
    const Verdict verdict = judge();
    if (verdict.is_disputed) show_words_of(run);
    change.fact = verdict.fact;
  } catch (const Failure&) {
    show_words_of(run);
    throw;
  }
}

void refresh_manager(Change& change) {
  const std::string complaint = "the manager was not refreshed for '" + change.name + "': ";
  try {
    const std::optional<Refreshed> refreshed = ask_refresh(kManagerTimeout.seconds);
    change.is_refreshed = refreshed && refreshed->code == 0;
    if (!refreshed) {
      complain(complaint + "it is from before this was possible; restart tarviod");
    } else if (refreshed->code != 0) {
      complain(complaint + result_words(refreshed->code) + "; try 'tarvio refresh'");
    } else {
      change.fact += "; " + known_words(change);
    }
  } catch (const Failure& failure) {
    if (failure.status() == kNoManager) return;
    change.is_refreshed = false;
    complain(complaint + failure.what() + "; try 'tarvio refresh'");
  }
}

}  // namespace client
