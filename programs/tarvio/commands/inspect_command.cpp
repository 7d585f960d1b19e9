#include "commands/inspect_command.h"

#include <cerrno>
#include <string>
#include <vector>

#include "packages/package_file.h"
#include "process/failure.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/text_table.h"

namespace client {

namespace {

PackageFile inspect(const std::string& file, double seconds) {
  const std::string path = readable_file(file);
  const WorkDirectory directory;
  PackageFile package = read_package_file(directory, path, seconds);
  if (!package.kind) {
    throw Failure(ENOENT, "it holds no tqcontrol: it is a package of opkg, but not of this system");
  }
  return package;
}

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

std::string table_of(const std::vector<InspectedFile>& files) {
  std::vector<Row> rows = {
      header_of({"FILE", "NAME", "VERSION", "CATEGORY", "SUBCATEGORY", "TARGETS"})};
  for (const InspectedFile& file : files) {
    if (!file.package.kind) continue;
    const PackageKind& kind = *file.package.kind;
    rows.push_back({{file.outcome.operand},
                    {file.package.name},
                    {file.package.version},
                    {kind.category},
                    {kind.subcategory},
                    {joined(kind.targets)}});
  }
  return rows.size() == 1 ? "" : render_table(rows, wants_colour());
}

}  // namespace

int run_inspect(const Options& options) {
  std::vector<InspectedFile> files;
  for (const std::string& operand : options.operands) {
    InspectedFile file;
    file.outcome = attempt("inspect", operand,
                           [&] { file.package = inspect(operand, options.timeout_seconds); });
    files.push_back(std::move(file));
  }
  const bool is_written = print(options.json ? inspected_json(files) : table_of(files));
  return is_written ? worst_status(files) : kFailed;
}

}  // namespace client
