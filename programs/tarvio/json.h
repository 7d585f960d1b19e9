// JSON for scripts: indented, ASCII only, and valid whatever the bytes are.
#ifndef TARVIO_CLIENT_JSON_H
#define TARVIO_CLIENT_JSON_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "outcome.h"
#include "package_file.h"
#include "packages.h"
#include "reply.h"

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

struct PackedFile {
  Outcome outcome;
  std::string file;
  std::string name;  // empty when it failed
  std::string version;
  uint64_t size_bytes = 0;
};

std::string status_json(const Status& status);
std::string statuses_json(const std::vector<Status>& statuses);
std::string packages_json(const std::vector<Package>& packages);
std::string result_json(const Result& result);
std::string inspected_json(const std::vector<InspectedFile>& files);
std::string packed_json(const PackedFile& packed);

}  // namespace client

#endif
