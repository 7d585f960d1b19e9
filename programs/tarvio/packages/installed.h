// What is installed, as opkg's information directory tells.
#ifndef TARVIO_CLIENT_PACKAGES_INSTALLED_H
#define TARVIO_CLIENT_PACKAGES_INSTALLED_H

#include <sys/stat.h>

#include <optional>
#include <string>

namespace client {

// The directory that the installed system lies below: empty when the device runs from it.
std::string root_of_packages();

// A package at one moment.
struct Installed {
  std::optional<std::string> version;  // none when it is not installed
  bool is_listed = false;              // has a tqcontrol, and so is a package of this system
  bool is_application = false;
  struct stat control = {};  // of its control file, which every installation writes anew
};

Installed look_up(const std::string& name);

// Whether the package was installed again between two moments at which it was there.
bool is_written_anew(const Installed& before, const Installed& after);

}  // namespace client

#endif
