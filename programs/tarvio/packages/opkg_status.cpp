#include "packages/opkg_status.h"

#include "packages/control_fields.h"
#include "packages/opkg_run.h"
#include "process/kernel_text.h"

namespace client {

bool says_installed(const std::vector<std::string>& lines, const std::string& version,
                    bool is_offline) {
  bool is_version = false;
  for (const std::string& line : lines) {
    if (line.starts_with("Package:")) is_version = false;
    if (line.starts_with("Version:")) is_version = value_in(line, "Version") == version;
    const std::string status = value_in(line, "Status");
    if (!is_version || status.empty()) continue;
    if (status.ends_with(" installed") || (is_offline && status.ends_with(" unpacked"))) {
      return true;
    }
  }
  return false;
}

bool is_whole_installation(const WorkDirectory& directory, const std::string& name,
                           const std::string& version, double seconds) {
  const OpkgRun run =
      run_opkg(directory, {.word = "status", .operand = name, .is_listing = true}, seconds);
  return run.has_failed || says_installed(run.lines, version, !root_of_packages().empty());
}

}  // namespace client
