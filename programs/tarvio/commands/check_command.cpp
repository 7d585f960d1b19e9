#include "commands/check_command.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "packages/package_file.h"
#include "packages/package_size.h"
#include "process/child.h"
#include "process/failure.h"
#include "tarvio/package.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

uint64_t measure(const WorkDirectory& directory, const std::string& archive, double seconds) {
  if (access((directory / archive).c_str(), F_OK) != 0) {
    throw Failure(EINVAL, "it holds no " + archive + ": it is damaged, or no package file");
  }
  ListingSum sum;
  run_tool(directory,
           {"tar", "--list", "--verbose", "--gzip", "--numeric-owner", "--file=" + archive},
           seconds, [&sum](std::string_view piece) { sum.add(piece); });
  const std::optional<uint64_t> bytes = sum.bytes();
  if (!bytes) throw Failure(EINVAL, "the sizes that tar lists are not understood");
  return *bytes;
}

uint64_t free_bytes(const WorkDirectory& directory, double seconds) {
  std::string output;
  run_tool(directory, {"df", "-P", "-k"}, seconds,
           [&output](std::string_view piece) { output += piece; });
  const std::optional<uint64_t> bytes = free_bytes_in(output);
  if (!bytes) throw Failure(EINVAL, "the free space that df tells is not understood");
  return *bytes;
}

int check_of_library(const WorkDirectory& directory, const std::string& path, double seconds) {
  const JobEnd end = run_job(
      directory, "ar, tar or df",
      [&path] {
        (void)tq_setup_package_manager();
        return std::to_string(tq_check_file_size(path.c_str()));
      },
      seconds);
  return static_cast<int>(strtol(end.result.c_str(), nullptr, 10));
}

void check(const std::string& file, double seconds, CheckedFile& checked) {
  const std::string path = readable_file(file);
  const WorkDirectory directory;
  run_tool(directory, {"ar", "x", path}, seconds, [](std::string_view) {});
  checked.control_bytes = measure(directory, "control.tar.gz", seconds);
  checked.data_bytes = measure(directory, "data.tar.gz", seconds);
  checked.free_bytes = free_bytes(directory, seconds);
  checked.library_result = check_of_library(directory, path, seconds);
  checked.is_measured = true;
}

// The library counts in 32 bits: of 2 GiB and more it has other results.
void tell_disagreement(const CheckedFile& checked) {
  const bool fits_library = checked.library_result == 0;
  if (fits_library == checked.fits()) return;
  complain("the library, which counts in 32 bits, finds that '" + checked.outcome.operand + "' " +
           (fits_library ? "fits" : "does not fit") + " (" +
           std::to_string(checked.library_result) + ")");
}

std::string line_of(const CheckedFile& checked) {
  return printable(checked.outcome.operand + (checked.fits() ? " fits" : " does not fit") +
                   ": it needs " + size_words(checked.needed_bytes()) +
                   ", free: " + size_words(checked.free_bytes)) +
         '\n';
}

}  // namespace

int run_check(const Options& options) {
  std::string text;
  std::vector<CheckedFile> files;
  for (const std::string& operand : options.operands) {
    CheckedFile checked;
    checked.outcome =
        attempt("check", operand, [&] { check(operand, options.timeout_seconds, checked); });
    if (checked.is_measured) {
      if (!checked.fits()) checked.outcome = {operand, ENOSPC, "it does not fit", kFailed};
      tell_disagreement(checked);
      text += line_of(checked);
    }
    files.push_back(std::move(checked));
  }
  const bool is_written = print(options.json ? checked_json(files) : text);
  return is_written ? worst_status(files) : kFailed;
}

}  // namespace client
