#include "commands/package_change.h"

#include <algorithm>

#include "commands/commands.h"
#include "process/failure.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"

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
  return json;
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

}  // namespace client
