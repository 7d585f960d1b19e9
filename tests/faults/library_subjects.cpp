// The functions of the library, in rows of calls (library_rows.h).
#include <filesystem>
#include <string>
#include <vector>

#include "faults/campaign.h"
#include "faults/device.h"
#include "support/files.h"

namespace faults {

namespace {

using tarvio_test::write_file;

void write_settings() {
  write_file(std::string(kWorkDirectory) + "/settings", "one: 1\ntwo: 2\nthree: 3\n");
}

void prepare_plain() {
  clear_device();
  write_settings();
}

void prepare_packages() {
  prepare_installed_packages();
  write_settings();
}

void prepare_new() {
  prepare_package_files();
  write_settings();
}

void prepare_devices() {
  prepare_flash();
  write_settings();
  std::filesystem::create_directory(std::string(kWorkDirectory) + "/tree");
  write_file(std::string(kWorkDirectory) + "/page", std::string(2048, 'p'));
}

Subject subject(const std::string& row, void (*set_up)(), void (*prepare)()) {
  return {.name = "lib-" + row,
          .program = {.command = {TARVIO_LIBRARY_PROGRAM, row}, .is_watched = true},
          .set_up = set_up,
          .prepare = prepare,
          .state = state_of_device,
          // What a function does not report, or leaves to its children, it does by contract.
          .keeps_word = false,
          .has_forks = false};
}

}  // namespace

std::vector<Subject> library_subjects() {
  const auto nothing = [] {};
  std::vector<Subject> subjects;
  for (const char* row : {"lists",           "tables",
                          "configurations",  "configurations-with-blanks",
                          "strings",         "words",
                          "files",           "messages",
                          "status-chains",   "status-manager",
                          "status-searches", "log-hooks",
                          "complaints",      "log-lines",
                          "log-reading",     "sockets",
                          "commands",        "processes",
                          "archives",        "package-data",
                          "boot-tests",      "status-list-searches",
                          "com-servers",     "com-managers"}) {
    subjects.push_back(subject(row, nothing, prepare_plain));
  }
  for (const char* row : {"packages", "package-filters", "removal", "package-files"}) {
    subjects.push_back(subject(row, save_packages, prepare_packages));
  }
  for (const char* row : {"installation", "package-checks"}) {
    subjects.push_back(subject(row, nothing, prepare_new));
  }
  for (const char* row : {"flash", "backups", "images"}) {
    subjects.push_back(subject(row, nothing, prepare_devices));
  }
  for (const char* row : {"statuses", "status-records", "remote-starts", "remote-starts-of-all"}) {
    subjects.push_back(subject(row, nothing, prepare_started_applications));
  }
  for (const char* row : {"applications", "applications-by-name", "all-applications",
                          "refreshed-applications", "served-requests"}) {
    subjects.push_back(subject(row, nothing, prepare_installed_applications));
  }
  return subjects;
}

}  // namespace faults
