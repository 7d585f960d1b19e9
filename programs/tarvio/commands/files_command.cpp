#include "commands/files_command.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "packages/control_fields.h"
#include "packages/installed.h"
#include "packages/opkg_run.h"
#include "packages/verdict.h"
#include "process/failure.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

std::vector<std::string> files_of(const std::string& name, double seconds) {
  if (!is_package_name(name)) throw Failure(EINVAL, "no package has such a name");
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

std::string text_of(const FilesOfPackage& package, bool has_heading) {
  std::string text;
  if (has_heading) text += printable(package.outcome.operand) + ":\n";
  for (const std::string& file : package.files) text += printable(file) + '\n';
  return text;
}

}  // namespace

int run_files(const Options& options) {
  std::string text;
  std::vector<FilesOfPackage> packages;
  for (const std::string& operand : options.operands) {
    FilesOfPackage package;
    package.outcome = attempt("list the files of", operand,
                              [&] { package.files = files_of(operand, options.timeout_seconds); });
    if (package.outcome.code == 0) {
      if (!text.empty()) text += '\n';
      text += text_of(package, options.operands.size() > 1);
    }
    packages.push_back(std::move(package));
  }
  const bool is_written = print(options.json ? files_json(packages) : text);
  return is_written ? worst_status(packages) : kFailed;
}

}  // namespace client
