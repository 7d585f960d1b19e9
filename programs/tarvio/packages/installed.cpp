#include "packages/installed.h"

#include <cerrno>

#include "packages/control_fields.h"
#include "packages/opkg_information.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "process/kernel_text.h"
#include "process/text_pieces.h"

namespace client {

namespace {

constexpr char kSystemFile[] = "/etc/systemversion";

}  // namespace

Installed look_up(const std::string& name) {
  Installed installed;
  const std::string beginning = information_directory() + "/" + name;
  const std::string control = beginning + ".control";
  if (stat(control.c_str(), &installed.control) != 0) {
    if (errno == ENOENT) return installed;
    throw Failure::of_system("'" + control + "'");
  }
  installed.version = value_in(read_information(control).value_or(""), "Version");
  const std::optional<std::string> tqcontrol = read_information(beginning + ".tqcontrol");
  installed.is_listed = tqcontrol.has_value();
  installed.is_application =
      tqcontrol && value_in(*tqcontrol, "TqPackageCategory") == kApplicationCategory;
  return installed;
}

std::string system_file() { return root_of_packages() + kSystemFile; }

std::string system_version() {
  const std::string file = system_file();
  const std::string text = read_information(file).value_or("");
  std::string_view rest = text;
  const std::string name(take_word(rest));
  const std::optional<std::string> version = name.empty() ? std::nullopt : look_up(name).version;
  if (version) return *version;
  throw Failure(ENODATA, "the version of the installed system is not known: " +
                             (name.empty() ? "'" + file + "' names no package"
                                           : "its package " + name + " is not installed"));
}

bool is_reinstalled(const Installed& before, const Installed& after) {
  return before.control.st_ino != after.control.st_ino ||
         before.control.st_ctim.tv_sec != after.control.st_ctim.tv_sec ||
         before.control.st_ctim.tv_nsec != after.control.st_ctim.tv_nsec;
}

}  // namespace client
