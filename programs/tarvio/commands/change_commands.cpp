#include "commands/change_commands.h"

#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "packages/control_fields.h"
#include "packages/installed.h"
#include "packages/opkg_run.h"
#include "packages/package_file.h"
#include "packages/verdict.h"
#include "process/failure.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr char kInstallForced[] =
    "--force-depends --force-maintainer --force-reinstall --force-overwrite --force-downgrade";
constexpr char kRemoveForced[] = "--force-depends";

// The package file under a name that opkg takes for one, in the directory.
std::string link_for_opkg(const WorkDirectory& directory, const std::string& path,
                          const PackageFile& package) {
  std::string link = directory / ((package.name.empty() ? "package" : package.name) + ".ipk");
  if (symlink(path.c_str(), link.c_str()) != 0) throw Failure::of_system("cannot make a link");
  return link;
}

// Name and version, when the file tells them; opkg says what is wrong with another one.
PackageFile identity_of(const WorkDirectory& directory, const std::string& path, double seconds) {
  try {
    PackageFile package = read_package_file(directory, path, seconds);
    if (is_package_name(package.name)) return package;
  } catch (const Failure& failure) {
    if (failure.status() != kFailed) throw;
    return {};
  }
  throw Failure(EINVAL, "no package may have the name that it tells");
}

void note_run(const OpkgRun& run, Change& change) {
  change.opkg_code = run.code;
  change.opkg_lines = run.lines;
  change.opkg_lines.insert(change.opkg_lines.end(), run.errors.begin(), run.errors.end());
}

// Takes the verdict, and tells what opkg said where that matters.
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

void install(const std::string& file, const Options& options, Change& change) {
  const std::string path = readable_file(file);
  if (!is_package_file_name(file)) throw Failure(EINVAL, "its name does not end in .tbx");
  const WorkDirectory directory;
  const PackageFile package = identity_of(directory, path, options.timeout_seconds);
  const bool is_known = !package.name.empty();
  const Installed before = is_known ? look_up(package.name) : Installed{};
  const OpkgRun run = run_opkg(directory,
                               {.word = "install",
                                .operand = link_for_opkg(directory, path, package),
                                .force_options = options.force ? kInstallForced : nullptr},
                               options.timeout_seconds);
  note_run(run, change);
  change.name = package.name;
  if (is_known) change.now = look_up(package.name);
  conclude(
      [&] {
        if (is_known) {
          return judge_installation({package.name, package.version, options.force}, before,
                                    change.now, run);
        }
        if (run.code != 0) throw Failure(run.code, run.message);
        throw Failure(EINVAL,
                      "opkg told of no known failure, but the file tells no name and version");
      },
      run, change);
}

void remove_package(const std::string& name, const Options& options, Change& change) {
  if (!is_package_name(name)) throw Failure(EINVAL, "no package has such a name");
  const WorkDirectory directory;
  const Installed before = look_up(name);
  const OpkgRun run = run_opkg(
      directory,
      {.word = "remove", .operand = name, .force_options = options.force ? kRemoveForced : nullptr},
      options.timeout_seconds);
  note_run(run, change);
  change.name = name;
  change.now = look_up(name);
  conclude([&] { return judge_removal(name, before, change.now, run); }, run, change);
}

using Work = void (*)(const std::string&, const Options&, Change&);

int run_changes(const char* verb, const char* kind_of_operand, const Options& options, Work work) {
  bool is_written = true;
  std::vector<Change> changes;
  for (const std::string& operand : options.operands) {
    Change change;
    change.outcome = attempt(verb, operand, [&] { work(operand, options, change); });
    if (change.outcome.code == 0) {
      change.outcome.message = change.fact;
      if (!options.json) is_written = print(printable(change.fact) + '\n') && is_written;
    }
    changes.push_back(std::move(change));
  }
  if (options.json) is_written = print(changes_json(changes, kind_of_operand));
  return is_written ? worst_status(changes) : kFailed;
}

}  // namespace

int run_install(const Options& options) { return run_changes("install", "file", options, install); }

int run_remove(const Options& options) {
  return run_changes("remove", "package", options, remove_package);
}

}  // namespace client
