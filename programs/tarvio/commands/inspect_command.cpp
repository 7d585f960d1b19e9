// tarvio inspect: what package files hold.
#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "terminal/outcome.h"
#include "terminal/output.h"
#include "terminal/text_table.h"

namespace client {

namespace {

PackageFile inspect(const std::string& file, double seconds) {
  const std::string path = readable_file(file);
  const WorkDirectory directory;
  PackageFile package = read_package_file(directory, path, seconds);
  if (!package.kind) {
    throw Failure(ENOENT, "it has no tqcontrol file, so tarvio does not manage it");
  }
  return package;
}

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

Row row_of(const std::string& file, const PackageFile& package) {
  return {{file},
          {package.name},
          {package.version},
          {package.kind->category},
          {package.kind->subcategory},
          {joined(package.kind->targets)}};
}

Json json_of(const Outcome& outcome, const PackageFile& package) {
  Json json = json_of("file", outcome);
  if (!package.kind) return json;
  json.update({{"name", package.name},
               {"version", package.version},
               {"category", package.kind->category},
               {"category_code", package.kind->category_code},
               {"subcategory", package.kind->subcategory},
               {"subcategory_code", package.kind->subcategory_code},
               {"targets", package.kind->targets}});
  return json;
}

Result run(const Arguments& arguments) {
  Result result;
  Json json = Json::array();
  std::vector<Row> rows = {
      header_of({"FILE", "NAME", "VERSION", "CATEGORY", "SUBCATEGORY", "TARGETS"})};
  for (const std::string& file : arguments.operands) {
    PackageFile package;
    const Outcome outcome =
        attempt("inspect", file, [&] { package = inspect(file, arguments.timeout_seconds); });
    if (package.kind) rows.push_back(row_of(file, package));
    result.status = std::max(result.status, outcome.status);
    json.push_back(json_of(outcome, package));
  }
  result.json = text_of(json);
  if (rows.size() > 1) result.text = render_table(rows, wants_colour());
  return result;
}

}  // namespace

const Command kInspectCommand = {
    .word = "inspect",
    .operands = kPackageFiles,
    .options = {},
    .timeout = kToolsTimeout,
    .summary = "show what package files hold",
    .description =
        "Shows what package files hold: name, version, category, subcategory and, for an "
        "image, the targets of its data. Nothing is installed.",
    .statuses = kToolsStatuses,
    .run = run,
};

}  // namespace client
