// JSON for scripts: indented, ASCII only, and valid whatever the bytes are.
#ifndef TARVIO_CLIENT_TERMINAL_JSON_H
#define TARVIO_CLIENT_TERMINAL_JSON_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "commands/outcome.h"
#include "flash/backup_run.h"
#include "flash/restore_run.h"
#include "manager/manager_reply.h"
#include "manager/status_changes.h"
#include "packages/installed.h"
#include "packages/package_file.h"
#include "packages/packages.h"

namespace client {

// What came of a start or stop request.
struct Result {
  std::string command;
  std::optional<std::string> name;  // none when all applications were meant
  int32_t code = 0;
  std::string message;
};

// Each with the package file that was read, unless that failed.
struct InspectedFile {
  Outcome outcome;
  PackageFile package;
};

// An installation or a removal.
struct Change {
  Outcome outcome;
  std::string fact;  // for people
  std::string name;  // empty when it is not known
  Installed now;
  int32_t opkg_code = 0;
  std::vector<std::string> opkg_lines;
};

struct FilesOfPackage {
  Outcome outcome;
  std::vector<std::string> files;
};

struct CheckedFile {
  Outcome outcome;
  bool is_measured = false;
  uint64_t control_bytes = 0;
  uint64_t data_bytes = 0;
  uint64_t free_bytes = 0;
  int library_result = 0;

  [[nodiscard]] uint64_t needed_bytes() const { return control_bytes + data_bytes; }
  [[nodiscard]] bool fits() const { return needed_bytes() <= free_bytes; }
};

struct PackedFile {
  Outcome outcome;
  std::string file;
  std::string name;  // empty when it failed
  std::string version;
  uint64_t size_bytes = 0;
};

std::string status_json(const Status& status);
std::string statuses_json(const std::vector<Status>& statuses);
// One line; the state is null when the status is gone.
std::string change_json(const StatusChange& change);
std::string packages_json(const std::vector<Package>& packages);
std::string result_json(const Result& result);
std::string inspected_json(const std::vector<InspectedFile>& files);
std::string changes_json(const std::vector<Change>& changes, const char* kind_of_operand);
std::string files_json(const std::vector<FilesOfPackage>& packages);
std::string checked_json(const std::vector<CheckedFile>& files);
std::string packed_json(const PackedFile& packed);
std::string areas_json();
std::string saved_json(const Outcome& outcome, const SavedImage& image);
std::string restored_json(const Outcome& outcome, const std::vector<RestoredArea>& areas);

}  // namespace client

#endif
