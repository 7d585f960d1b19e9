// tarvio files: the files of installed packages.
#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "packages/control_fields.h"
#include "packages/installed.h"
#include "packages/opkg_run.h"
#include "packages/verdict.h"
#include "process/failure.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

std::vector<std::string> files_of(const std::string& name, double seconds) {
  if (!is_package_name(name)) throw Failure(EINVAL, "not a valid package name");
  const WorkDirectory directory;
  OpkgRun run =
      run_opkg(directory, {.word = "files", .operand = name, .is_listing = true}, seconds);
  std::vector<std::string>& lines = run.lines;
  lines.erase(std::remove(lines.begin(), lines.end(), ""), lines.end());
  try {
    judge_files(look_up(name), run);
  } catch (const Failure&) {
    show_words_of(run);
    throw;
  }
  lines.erase(lines.begin());  // a heading
  return std::move(lines);
}

std::string listing_of(const std::vector<std::string>& files) {
  std::string text;
  for (const std::string& file : files) text += printable(file) + '\n';
  return text;
}

Result run(const Arguments& arguments) {
  const bool has_headings = arguments.operands.size() > 1;
  Result result;
  Json json = Json::array();
  for (const std::string& name : arguments.operands) {
    std::vector<std::string> files;
    const Outcome outcome = attempt("list the files of", name,
                                    [&] { files = files_of(name, arguments.timeout_seconds); });
    if (outcome.code == 0) {
      if (!result.text.empty()) result.text += '\n';
      if (has_headings) result.text += printable(name) + ":\n";
      result.text += listing_of(files);
    }
    result.status = std::max(result.status, outcome.status);
    json.push_back(json_of("package", outcome));
    json.back()["files"] = files;
  }
  result.json = text_of(json);
  return result;
}

}  // namespace

const Command kFilesCommand = {
    .word = "files",
    .operands = kPackageNames,
    .options = {},
    .timeout = kToolsTimeout,
    .summary = "list the files of installed packages",
    .description = "Lists the files of installed packages, as opkg reports them.",
    .statuses = kToolsStatuses,
    .run = run,
};

}  // namespace client
