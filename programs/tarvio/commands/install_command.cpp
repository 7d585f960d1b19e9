// tarvio install
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "commands/commands.h"
#include "commands/package_change.h"
#include "packages/control_fields.h"
#include "packages/dependencies.h"
#include "packages/needed_space.h"
#include "packages/opkg_information.h"
#include "packages/opkg_status.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "process/required_tools.h"
#include "signatures/package_guard.h"
#include "tarvio/error.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr Option kForce = {.name = "force",
                           .help =
                               "install despite missing dependencies, the same or a newer "
                               "version, and files of other packages"};
constexpr Option kRequireSignature = {
    .name = "require-signature",
    .help = "refuse a package without a good signature, whatever /etc/tarvio/tarvio.conf says"};
constexpr std::array kOptions = {kForce, kRequireSignature};
// As the library has them.
constexpr char kForceOptions[] =
    "--force-depends --force-maintainer --force-reinstall --force-overwrite --force-downgrade";

struct Request {
  bool is_forced;
  Demand demand;
  double timeout_seconds;
  Progress::Kind progress;
};

// The package file under a name that opkg accepts, in the directory.
std::string link_for_opkg(const WorkDirectory& directory, const std::string& path,
                          const std::string& name) {
  std::string link = directory / (name + ".ipk");
  if (symlink(path.c_str(), link.c_str()) != 0) throw Failure::of_system("cannot make a link");
  return link;
}

// Old releases of opkg register a damaged package without its files, and no release fails where
// the space for them runs out.
PackageFile read_whole_package(const WorkDirectory& directory, const std::string& path,
                               double seconds) {
  PackageFile package = read_package_file(directory, path, seconds);
  if (!is_package_name(package.name)) throw Failure(EINVAL, "its package name is not valid");
  if (package.is_image()) {
    throw Failure(EINVAL, "it is an image, not an application; write it with 'tarvio restore'");
  }
  const Space space = measure_package(directory, path, seconds).decisive;
  if (space.fits()) return package;
  throw Failure(ENOSPC, "not enough space in '" + space.directory +
                            "': " + size_words(space.needed_bytes) + " needed, " +
                            size_words(*space.free_bytes) + " free");
}

// Where a signature is required, opkg is kept from fetching what the package needs, because the
// feeds have none. A release that cannot be kept from it then fetches what is recommended at most.
void check_dependencies(const WorkDirectory& directory) {
  const std::string missing =
      missing_dependency(read_control_text(directory / "control").value_or(""));
  if (missing.empty()) return;
  throw Failure(TQ_ERR_PACKAGE_DEPENDENCY,
                "it needs '" + missing +
                    "', which is not installed and would come from a feed without a signature; "
                    "install that first");
}

Verdict judge(const PackageFile& package, const Installed& before, const Installed& now,
              const OpkgRun& run) {
  if (now.version != package.version) {
    check_place_of_information(package.name, package.name + " may be installed, but ");
  }
  return judge_installation({package.name, package.version}, before, now, run);
}

void install(const std::string& file, const Request& request, Change& change) {
  (void)readable_file(file);
  if (!is_package_file_name(file)) throw Failure(EINVAL, "package file names must end in .tbx");
  require_tools({"opkg"});
  const WorkDirectory directory;
  Progress progress(request.progress);
  const PackageGuard guard(directory, file, Use::kInstall, request.demand,
                           "set TMPDIR to another directory", request.timeout_seconds, progress);
  const PackageFile package = read_whole_package(directory, guard.path(), request.timeout_seconds);
  guard.check_identity(package);
  check_place_of_information(package.name);
  const Installed before = look_up(package.name);
  guard.check_version(package, before.version);
  change.name = package.name;
  change.now = before;
  // Releases of opkg differ in what they do then.
  if (before.version == package.version && !request.is_forced &&
      is_whole_installation(directory, package.name, package.version, request.timeout_seconds)) {
    change.fact = package.name + " " + package.version + " is already installed; nothing changed";
    return;
  }
  if (guard.requires_signature()) check_dependencies(directory);
  const OpkgRun run = run_opkg(directory,
                               {.word = "install",
                                .operand = link_for_opkg(directory, guard.path(), package.name),
                                .force_options = request.is_forced ? kForceOptions : nullptr,
                                .is_alone = guard.requires_signature()},
                               request.timeout_seconds);
  note_run(run, change);
  conclude(
      [&] {
        change.now = look_up(package.name);
        return judge(package, before, change.now, run);
      },
      run, change);
  if (before.is_application || change.now.is_application) refresh_manager(change);
}

Result run(const Arguments& arguments) {
  const Request request = {
      .is_forced = arguments.has(kForce),
      .demand = arguments.has(kRequireSignature) ? Demand::kSignature : Demand::kPolicy,
      .timeout_seconds = arguments.timeout_seconds,
      .progress = progress_in(arguments)};
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
    .need = Need::kAnswer,
    .summary = "install package files",
    .description =
        "Installs package files, whose names end in .tbx, with opkg. A damaged file is refused, "
        "and so are one without enough space for it, one without the signature that "
        "/etc/tarvio/tarvio.conf or --require-signature demands, and an image, which 'tarvio "
        "restore' writes. "
        "The result is checked against what is actually installed. A running manager is made to "
        "know a new application.",
    .statuses = kGuardedStatuses,
    .run = run,
};

}  // namespace client
