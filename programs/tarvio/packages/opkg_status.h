// How far opkg is with an installation, by its own account.
#ifndef TARVIO_CLIENT_PACKAGES_OPKG_STATUS_H
#define TARVIO_CLIENT_PACKAGES_OPKG_STATUS_H

#include <string>
#include <vector>

#include "process/work_directory.h"

namespace client {

// Whether the lines of 'opkg status' say that this version is installed. Below an offline root, the
// newer releases leave a package unpacked, for the device to configure.
bool says_installed(const std::vector<std::string>& lines, const std::string& version,
                    bool is_offline);

// False where a power cut has ended opkg between the package's files and its own records. True as
// well for a release that cannot tell.
bool is_whole_installation(const WorkDirectory& directory, const std::string& name,
                           const std::string& version, double seconds);

}  // namespace client

#endif
