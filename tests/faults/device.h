// The device of a campaign: what is installed on it, and what a run has made of it.
#ifndef TARVIO_TESTS_FAULTS_DEVICE_H
#define TARVIO_TESTS_FAULTS_DEVICE_H

#include <filesystem>
#include <string>
#include <vector>

namespace faults {

void clear(const std::filesystem::path& directory);
// Runs a line under the shell; it must succeed.
void shell(const std::string& line);

// Empties the temporary directory, the work directory, and those of installed packages.
void clear_device();
// Keeps what is installed now, and puts it back.
void save_installed(const std::string& name);
void load_installed(const std::string& name);

// A line for each entry below a directory, or for a file: mode, path, and a checksum of the
// content.
std::string tree_of(const std::filesystem::path& path);
// The preparations of the commands, which the functions below them need as well.
void save_packages();
void prepare_package_files();
void prepare_installed_packages();
void prepare_flash();
void prepare_started_applications();
void prepare_installed_applications();

// Of the directories of installed packages and of the work directory.
std::string state_of_device();

}  // namespace faults

#endif
