// tarvio doctor
#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <memory>
#include <utility>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "commands/doctor/finding.h"
#include "process/failure.h"
#include "process/paths.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/text_table.h"

namespace client {

namespace {

struct Check {
  const char* name;  // of the row when it cannot be done
  Findings (*look)(const Examination& examination);
};

constexpr std::array<Check, 11> kChecks = {{
    {.name = "tools", .look = check_tools},
    {.name = "isolation", .look = check_isolation},
    {.name = "root", .look = check_root},
    {.name = "opkg directories", .look = check_packages},
    {.name = "package policy", .look = check_policy},
    {.name = "keys", .look = check_keys},
    {.name = "flash memory", .look = check_areas},
    {.name = "backup space", .look = check_backup_space},
    {.name = "socket", .look = check_socket},
    {.name = "manager", .look = check_manager},
    {.name = "system log", .look = check_log},
}};

constexpr Timeout kDoctorTimeout = {
    10, timeout_option("stop a tool that is not done by then, and give up on a manager that has "
                       "not answered; default 10, 0 waits forever")};

struct StatusWord {
  const char* text;
  Colour colour;
};
// In the order of CheckStatus.
constexpr std::array<StatusWord, 3> kStatusWords = {
    {{"ok", Colour::kGreen}, {"warning", Colour::kYellow}, {"failed", Colour::kRed}}};

const StatusWord& word_of(CheckStatus status) {
  return kStatusWords.at(static_cast<size_t>(status));
}

// Null, with the row, when there can be none.
std::unique_ptr<WorkDirectory> make_work_directory(Findings& findings) {
  try {
    auto directory = std::make_unique<WorkDirectory>();
    directory->check_space_left();
    findings.push_back({.check = "work directory", .found = directory_of(directory->path())});
    return directory;
  } catch (const Failure& failure) {
    findings.push_back({.check = "work directory",
                        .status = CheckStatus::kFailed,
                        .found = failure.what(),
                        .remedy = "make room there and let this user write, or set TMPDIR"});
    return nullptr;
  }
}

Findings look_at_everything(const Arguments& arguments) {
  Findings findings;
  const std::unique_ptr<WorkDirectory> directory = make_work_directory(findings);
  const Examination examination = {
      .directory = directory.get(),
      .seconds = arguments.timeout_seconds,
      .backup_directory = arguments.operands.empty() ? "" : arguments.operands.front()};
  for (const Check& check : kChecks) {
    try {
      Findings found = check.look(examination);
      std::move(found.begin(), found.end(), std::back_inserter(findings));
    } catch (const Failure& failure) {
      findings.push_back(not_checked(check.name, failure));
    }
  }
  return findings;
}

std::string table_of(const Findings& findings) {
  std::vector<Row> rows = {header_of({"CHECK", "STATUS", "FOUND"})};
  for (const Finding& finding : findings) {
    const StatusWord& word = word_of(finding.status);
    rows.push_back({{finding.check}, {word.text, word.colour}, {finding.found}});
    if (!finding.remedy.empty()) rows.push_back({{}, {}, {"remedy: " + finding.remedy}});
  }
  return render_table(rows, wants_colour());
}

Json json_of(const Finding& finding) {
  return {{"check", finding.check},
          {"status", word_of(finding.status).text},
          {"found", finding.found},
          {"remedy", or_null(finding.remedy)}};
}

Result run(const Arguments& arguments) {
  const Findings findings = look_at_everything(arguments);
  Result result = {.text = table_of(findings)};
  Json json = Json::array();
  for (const Finding& finding : findings) json.push_back(json_of(finding));
  result.json = text_of(json);
  const auto failed = std::count_if(findings.begin(), findings.end(), [](const Finding& each) {
    return each.status == CheckStatus::kFailed;
  });
  if (failed > 0) {
    result.status = kFailed;
    result.complaint =
        std::to_string(failed) + " of " + std::to_string(findings.size()) + " checks failed";
  }
  return result;
}

}  // namespace

Finding not_checked(const std::string& check, const Failure& failure) {
  const bool needs_root = failure.code() == EACCES || failure.code() == EPERM;
  return {.check = check,
          .status = CheckStatus::kFailed,
          .found = std::string("cannot be checked: ") + failure.what(),
          .remedy = needs_root ? kRunAsRoot : "fix this, and run 'tarvio doctor' again"};
}

const Command kDoctorCommand = {
    .word = "doctor",
    .operands = {.name = "DIR",
                 .max = 1,
                 .offer = Offer::kDirectories,
                 .help = "DIR is where backups will be written; without it, too little space for "
                         "a backup of all areas in the current directory is a warning only."},
    .options = {},
    .timeout = kDoctorTimeout,
    .summary = "check whether this device has what it needs",
    .description =
        "Checks tools, their isolation, directories, flash memory, socket, manager and system log, "
        "and prints what "
        "was found and, where it is not ok, the remedy. What cannot be checked is not ok: some of "
        "it needs root. Changes nothing.",
    .statuses = "0 no check failed, 1 something that is needed is missing or cannot be checked",
    .run = run,
};

}  // namespace client
