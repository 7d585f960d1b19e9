// Packages that opkg has left half done, as a power cut in the middle of its work does: it writes
// its own records last.
#ifndef TARVIO_AGENT_OPKG_RECORDS_H
#define TARVIO_AGENT_OPKG_RECORDS_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace agent {

inline constexpr char kInformation[] = "/usr/lib/opkg/info";
inline constexpr char kStatusDirectory[] = "/usr/lib/opkg";

// The names of those for which the text of the status file is not that of an installed package.
//
// versions  what the information directory has, under the names of packages.
std::vector<std::string> unfinished_in(std::string_view status,
                                       const std::map<std::string, std::string>& versions);

// Of the system that is installed below the root, which is empty for the running one. None where
// opkg has no status file, or another place for it.
std::vector<std::string> unfinished_packages(const std::string& root);

}  // namespace agent

#endif
