// Where the packages are: the root that the device runs from, and opkg's directories below it.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "commands/doctor/finding.h"
#include "flash/area_parts.h"
#include "packages/opkg_information.h"
#include "process/failure.h"
#include "process/kernel_text.h"
#include "process/system_file.h"
#include "process/text_pieces.h"

namespace client {

namespace {

constexpr char kCheck[] = "opkg directories";

// What is mounted on a directory last, which covers the others; empty when nothing is.
std::string device_on(const std::string& directory) {
  std::string device;
  for (const Mount& mount : mounts_in(read_system_file("/proc/self/mounts"))) {
    if (mount.directory == directory) device = mount.device;
  }
  return device;
}

// None for a version that is not of opkg's own numbers.
std::optional<bool> is_newer_opkg(const std::string& version) {
  constexpr int kFirstMinor = 3;  // of 0.3, which uses another directory
  const size_t dot = version.find('.');
  const auto major = parse_number<int>(version.substr(0, dot));
  const std::string rest = dot == std::string::npos ? "" : version.substr(dot + 1);
  const auto minor = parse_number<int>(rest.substr(0, rest.find('.')));
  if (!major || !minor) return std::nullopt;
  return *major > 0 || *minor >= kFirstMinor;
}

Finding failed(const std::string& found, const std::string& remedy) {
  return {.check = kCheck, .status = CheckStatus::kFailed, .found = found, .remedy = remedy};
}

// Where opkg keeps its information although the library looks elsewhere; empty when it does not.
std::string other_place(const std::string& directory) {
  std::string configured = configured_place_of_information();
  if (!configured.empty() && configured != directory) return configured;
  return other_place_of_information("");
}

std::string count_words(size_t packages) {
  if (packages == 0) return "no package is installed";
  return std::to_string(packages) + (packages == 1 ? " package" : " packages");
}

// Where packages will be kept that are installed from now on is what the configuration of opkg
// says, or its release: it may have been upgraded since the last package was installed.
Finding judge_release(const Examination& examination, const std::string& directory) {
  const size_t count = control_files_in(directory).size();
  const std::string found = directory + ", " + count_words(count);
  if (!configured_place_of_information().empty()) return {.check = kCheck, .found = found};
  const std::string version = version_of_tool(examination, "opkg");
  const std::optional<bool> is_newer = is_newer_opkg(version);
  if (is_newer ? !*is_newer : count > 0) return {.check = kCheck, .found = found};
  if (!is_newer) {
    return failed(found + ", and where opkg will keep its information is not known",
                  remedy_for_other_place());
  }
  if (count == 0) {
    return failed("opkg " + version + " does not keep its information in " + directory,
                  remedy_for_other_place());
  }
  return {.check = kCheck,
          .status = CheckStatus::kWarning,
          .found = found + ", and opkg " + version + " will keep new ones elsewhere",
          .remedy = remedy_for_other_place()};
}

}  // namespace

Findings check_root(const Examination& /*examination*/) {
  const std::string root = root_of_packages();
  const std::string named = root_in(read_system_file("/proc/cmdline"));
  const std::string running =
      named.empty() ? "the kernel's command line names no root" : "the kernel's root is " + named;
  if (root.empty()) return {{.check = "root", .found = running + "; packages are below /"}};
  const std::string device = device_on(root);
  if (!device.empty()) {
    return {
        {.check = "root",
         .found = running + "; packages are below " + root + ", where " + device + " is mounted"}};
  }
  const FlashArea& installed = *find_area("rootfs");
  return {{.check = "root",
           .status = CheckStatus::kFailed,
           .found = running + ", so packages are below " + root + ", where nothing is mounted",
           .remedy = std::string("boot with root=") + installed.source +
                     ", or mount the installed root file system on " + root}};
}

Findings check_packages(const Examination& examination) {
  const std::string directory = information_directory();
  const std::string root = root_of_packages();
  // What is below it then belongs to another file system.
  if (!root.empty() && device_on(root).empty()) {
    return {failed(directory + ", where nothing is mounted on " + root, "see 'root' above")};
  }
  if (const std::string other = other_place(directory); !other.empty()) {
    return {failed("opkg keeps its information in " + other, remedy_for_other_place())};
  }
  if (access(directory.c_str(), F_OK) != 0) {
    return {failed(directory + ": " + strerror(errno), "mkdir -p " + directory)};
  }
  // An ordinary user need not be allowed to.
  if (access(directory.c_str(), W_OK) != 0 && errno != EACCES) {
    return {failed(directory + " cannot be written: " + strerror(errno),
                   "mount its file system for writing")};
  }
  return {judge_release(examination, directory)};
}

}  // namespace client
