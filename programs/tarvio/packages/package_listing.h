// The installed packages, which this process reads itself.
#ifndef TARVIO_CLIENT_PACKAGES_PACKAGE_LISTING_H
#define TARVIO_CLIENT_PACKAGES_PACKAGE_LISTING_H

#include <cstdint>
#include <string>
#include <vector>

namespace client {

struct Package {
  bool operator==(const Package&) const = default;

  std::string name;
  std::string version;
  int32_t category = 0;
  int32_t subcategory = 0;
  std::string maintainer;
  std::string start_file;  // path, or empty
  std::string stop_file;   // path, or empty
};

struct Listing {
  int32_t code = 0;         // not 0 when something could not be read; there may still be packages
  std::string reason = {};  // for people
  // The code is about this and nothing else: a new device has no package.
  bool lacks_directory = false;
  std::vector<Package> packages;
};

// In the order of the library, which is the order in which the manager looks for an application.
// The codes are those of tarvio/package.h; a null name means any.
Listing list_packages(uint32_t category, uint32_t subcategory, const char* name);

}  // namespace client

#endif
