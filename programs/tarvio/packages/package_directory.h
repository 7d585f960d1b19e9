// A directory that a package file can be built from.
#ifndef TARVIO_CLIENT_PACKAGES_PACKAGE_DIRECTORY_H
#define TARVIO_CLIENT_PACKAGES_PACKAGE_DIRECTORY_H

#include <string>
#include <vector>

namespace client {

struct PackageDirectory {
  std::string path;  // absolute
  std::string name;
  std::string version;
  std::vector<std::string> control_files;  // sorted
  bool has_data = false;
};

// Checks the directory and reads its control files. Throws a Failure that names what is missing or
// wrong.
PackageDirectory check_package_directory(const std::string& path);

}  // namespace client

#endif
