// What is installed, according to opkg's information directory.
#ifndef TARVIO_CLIENT_PACKAGES_INSTALLED_H
#define TARVIO_CLIENT_PACKAGES_INSTALLED_H

#include <sys/stat.h>

#include <optional>
#include <string>

namespace client {

// A package at one point in time.
struct Installed {
  std::optional<std::string> version;  // none when it is not installed
  bool is_listed = false;              // has a tqcontrol file, so the library knows it
  bool is_application = false;
  struct stat control = {};  // of its control file, which every installation rewrites
};

// Throws a Failure when it cannot be found out.
Installed look_up(const std::string& name);

// The file that names the package of the installed system.
std::string system_file();

// The version of the installed system: that of that package. Throws a Failure
// when it is not known.
std::string system_version();

// Whether a package that was there both times was installed again in between.
bool is_reinstalled(const Installed& before, const Installed& after);

}  // namespace client

#endif
