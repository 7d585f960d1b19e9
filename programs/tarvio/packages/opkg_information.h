// The directory in which opkg keeps what it knows of the installed packages.
#ifndef TARVIO_CLIENT_PACKAGES_OPKG_INFORMATION_H
#define TARVIO_CLIENT_PACKAGES_OPKG_INFORMATION_H

#include <optional>
#include <string>
#include <vector>

namespace client {

// Where the library looks, below the root of the installed system.
std::string information_directory();

// The names of all control files in a directory of opkg's; none when there is no such directory.
// Throws a Failure when it cannot be read.
std::vector<std::string> control_files_in(const std::string& directory);

// A file of that directory; none when it does not exist. Throws a Failure that names the file when
// it cannot be read.
std::optional<std::string> read_information(const std::string& path);

// Releases of opkg differ in where they keep their files.

// Where opkg knows the package, or any package for an empty name, when it knows none in the
// directory where the library looks; else empty.
std::string other_place_of_information(const std::string& name);

// The directory that its configuration names; empty when it names none, which old releases need
// not.
std::string configured_place_of_information();

// For an opkg that uses another directory.
std::string remedy_for_other_place();

// Throws a Failure, with the remedy, when opkg knows the package, or any package for an empty name,
// in another directory and none here; `state` says what is installed.
void check_place_of_information(const std::string& name, const std::string& state = "");

}  // namespace client

#endif
