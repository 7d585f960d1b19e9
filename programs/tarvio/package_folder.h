// A folder that a package file can be built from.
#ifndef TARVIO_CLIENT_PACKAGE_FOLDER_H
#define TARVIO_CLIENT_PACKAGE_FOLDER_H

#include <string>
#include <vector>

namespace client {

struct PackageFolder {
  std::string path;  // absolute
  std::string name;
  std::string version;
  std::vector<std::string> control_files;  // sorted
  bool has_data = false;
};

// Looks at the folder and reads its control files. Throws a Failure that tells what is missing or
// wrong.
PackageFolder check_package_folder(const std::string& path);

}  // namespace client

#endif
