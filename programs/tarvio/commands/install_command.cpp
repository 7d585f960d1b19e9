// tarvio install
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "commands/commands.h"
#include "commands/package_change.h"
#include "packages/control_fields.h"
#include "packages/package_file.h"
#include "process/failure.h"

namespace client {

namespace {

constexpr Option kForce = {.name = "force",
                           .help =
                               "install despite missing dependencies, the same or a newer "
                               "version, and files of other packages"};
constexpr std::array kOptions = {kForce};
// As the library has them.
constexpr char kForceOptions[] =
    "--force-depends --force-maintainer --force-reinstall --force-overwrite --force-downgrade";

struct Request {
  bool is_forced;
  double timeout_seconds;
};

// The package file under a name that opkg accepts, in the directory.
std::string link_for_opkg(const WorkDirectory& directory, const std::string& path,
                          const PackageFile& package) {
  std::string link = directory / ((package.name.empty() ? "package" : package.name) + ".ipk");
  if (symlink(path.c_str(), link.c_str()) != 0) throw Failure::of_system("cannot make a link");
  return link;
}

// Name and version, when the file has them; opkg says what is wrong with a file that has not.
PackageFile identity_of(const WorkDirectory& directory, const std::string& path, double seconds) {
  try {
    PackageFile package = read_package_file(directory, path, seconds);
    if (is_package_name(package.name)) return package;
  } catch (const Failure& failure) {
    if (failure.status() != kFailed) throw;
    return {};
  }
  throw Failure(EINVAL, "its package name is not valid");
}

Verdict judge(const PackageFile& package, const Request& request, const Installed& before,
              const Installed& now, const OpkgRun& run) {
  if (!package.name.empty()) {
    return judge_installation({package.name, package.version, request.is_forced}, before, now, run);
  }
  if (run.code != 0) throw Failure(run.code, run.message);
  throw Failure(EINVAL,
                "opkg reported no recognised error, but the file has no package name or version");
}

void install(const std::string& file, const Request& request, Change& change) {
  const std::string path = readable_file(file);
  if (!is_package_file_name(file)) throw Failure(EINVAL, "package file names must end in .tbx");
  const WorkDirectory directory;
  const PackageFile package = identity_of(directory, path, request.timeout_seconds);
  const bool is_known = !package.name.empty();
  const Installed before = is_known ? look_up(package.name) : Installed{};
  const OpkgRun run = run_opkg(directory,
                               {.word = "install",
                                .operand = link_for_opkg(directory, path, package),
                                .force_options = request.is_forced ? kForceOptions : nullptr},
                               request.timeout_seconds);
  note_run(run, change);
  change.name = package.name;
  if (is_known) change.now = look_up(package.name);
  conclude([&] { return judge(package, request, before, change.now, run); }, run, change);
}

Result run(const Arguments& arguments) {
  const Request request = {.is_forced = arguments.has(kForce),
                           .timeout_seconds = arguments.timeout_seconds};
  return change_packages(arguments, "file", [&](const std::string& file, Change& change) {
    install(file, request, change);
  });
}

}  // namespace

const Command kInstallCommand = {
    .word = "install",
    .operands = kPackageFiles,
    .options = kOptions,
    .timeout = kToolsTimeout,
    .summary = "install package files",
    .description =
        "Installs package files, whose names end in .tbx, with opkg. The result is checked against "
        "what is actually installed. Restart tarviod to make a new application available.",
    .statuses = kToolsStatuses,
    .run = run,
};

}  // namespace client
