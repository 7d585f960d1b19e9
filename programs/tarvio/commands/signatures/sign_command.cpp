// tarvio sign: signatures of package files.
#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "commands/commands.h"
#include "commands/signatures/key_options.h"
#include "signatures/package_signature.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr Option kKey = {.name = "key",
                         .value = "KEY",
                         .offer = Offer::kFiles,
                         .help = "the secret key, made by keygen or by minisign",
                         .is_required = true};
constexpr std::array kOptions = {kKey, kPasswordFile};

PackageFile sign(const std::string& file, const SecretKey& key, const Arguments& arguments) {
  const double seconds = arguments.timeout_seconds;
  const std::string path = readable_file(file);
  const WorkDirectory directory;
  PackageFile package = read_package_file(directory, path, seconds);
  Progress progress(progress_in(arguments));
  progress.begin(file);
  write_signature(file, sign_package(directory, path, key, package, seconds, progress));
  return package;
}

Result run(const Arguments& arguments) {
  const std::unique_ptr<SecretKey> key =
      open_secret_key(*arguments.value_of(kKey), password_file_in(arguments));
  Result result;
  Json json = Json::array();
  for (const std::string& file : arguments.operands) {
    PackageFile package;
    const Outcome outcome = attempt("sign", file, [&] { package = sign(file, *key, arguments); });
    Json each = json_of("file", outcome);
    if (outcome.code == 0) {
      result.text += printable("signed " + file + " as " + title_of(package) + " with key " +
                               text_of(key->id())) +
                     '\n';
      each.update({{"signature", signature_path(file)},
                   {"name", package.name},
                   {"version", package.version},
                   {"key_id", text_of(key->id())}});
    }
    result.status = std::max(result.status, outcome.status);
    json.push_back(each);
  }
  result.json = text_of(json);
  return result;
}

}  // namespace

const Command kSignCommand = {
    .word = "sign",
    .operands = kPackageFiles,
    .options = kOptions,
    .timeout = kToolsTimeout,
    .summary = "sign package files",
    .description =
        "Writes a signature beside each package file, FILE.minisig, in the format of minisign. An "
        "existing one is replaced. Its trusted comment names the package and its version.",
    .statuses = kToolsStatuses,
    .run = run,
};

}  // namespace client
