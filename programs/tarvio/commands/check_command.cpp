// tarvio check: whether package files fit on the device.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "packages/package_file.h"
#include "packages/package_size.h"
#include "process/child.h"
#include "process/failure.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

struct Sizes {
  uint64_t control_bytes;
  uint64_t data_bytes;
  uint64_t free_bytes;

  [[nodiscard]] uint64_t needed_bytes() const { return control_bytes + data_bytes; }
  [[nodiscard]] bool fits() const { return needed_bytes() <= free_bytes; }
};

uint64_t measure(const WorkDirectory& directory, const std::string& archive, double seconds) {
  if (access((directory / archive).c_str(), F_OK) != 0) throw no_archive(archive);
  ListingSum sum;
  execute(directory,
          {"tar", "--list", "--verbose", "--gzip", "--numeric-owner", "--file=" + archive}, seconds,
          [&sum](std::string_view piece) { sum.add(piece); });
  const std::optional<uint64_t> bytes = sum.finish();
  if (!bytes) throw Failure(EINVAL, "cannot parse the sizes in tar's output");
  return *bytes;
}

uint64_t free_bytes(const WorkDirectory& directory, double seconds) {
  std::string output;
  execute(directory, {"df", "-P", "-k"}, seconds,
          [&output](std::string_view piece) { output += piece; });
  const std::optional<uint64_t> bytes = free_bytes_in(output);
  if (!bytes) throw Failure(EINVAL, "cannot parse df's output");
  return *bytes;
}

Sizes sizes_of(const std::string& file, double seconds) {
  const std::string path = readable_file(file);
  const WorkDirectory directory;
  execute(directory, {"ar", "x", path}, seconds, [](std::string_view) {});
  return {.control_bytes = measure(directory, "control.tar.gz", seconds),
          .data_bytes = measure(directory, "data.tar.gz", seconds),
          .free_bytes = free_bytes(directory, seconds)};
}

std::string line_of(const std::string& file, const Sizes& sizes) {
  return printable(file + (sizes.fits() ? " fits" : " does not fit") + ": needs " +
                   size_words(sizes.needed_bytes()) + ", free: " + size_words(sizes.free_bytes)) +
         '\n';
}

Json json_of(const Outcome& outcome, const std::optional<Sizes>& sizes) {
  Json json = json_of("file", outcome);
  if (!sizes) return json;
  json.update({{"fits", sizes->fits()},
               {"needed_bytes", sizes->needed_bytes()},
               {"control_bytes", sizes->control_bytes},
               {"data_bytes", sizes->data_bytes},
               {"free_bytes", sizes->free_bytes}});
  return json;
}

Result run(const Arguments& arguments) {
  Result result;
  Json json = Json::array();
  for (const std::string& file : arguments.operands) {
    std::optional<Sizes> sizes;
    Outcome outcome =
        attempt("check", file, [&] { sizes = sizes_of(file, arguments.timeout_seconds); });
    if (sizes) {
      if (!sizes->fits()) outcome = {file, ENOSPC, "it does not fit", kFailed};
      result.text += line_of(file, *sizes);
    }
    result.status = std::max(result.status, outcome.status);
    json.push_back(json_of(outcome, sizes));
  }
  result.json = text_of(json);
  return result;
}

}  // namespace

const Command kCheckCommand = {
    .word = "check",
    .operands = kPackageFiles,
    .options = {},
    .timeout = kToolsTimeout,
    .summary = "check whether package files fit on this device",
    .description =
        "Checks whether the contents of package files fit into the free space of the "
        "file system that df lists first.",
    .statuses = "0 all fit, 1 one or more do not or failed, 5 a tool timed out",
    .run = run,
};

}  // namespace client
