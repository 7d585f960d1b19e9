// tarvio verify: whether package files are signed by a key that is trusted.
#include <algorithm>
#include <array>
#include <string>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "signatures/key_ring.h"
#include "signatures/package_signature.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr Option kKey = {.name = "key",
                         .value = "KEY",
                         .offer = Offer::kFiles,
                         .help =
                             "trust this public key, and no other; default: the keys in "
                             "/etc/tarvio/keys"};
constexpr std::array kOptions = {kKey};

struct Verified {
  PackageFile package;
  std::string key_id;
};

Verified verify(const std::string& file, const KeyRing& ring, const Arguments& arguments) {
  const double seconds = arguments.timeout_seconds;
  const std::string path = readable_file(file);
  const WorkDirectory directory;
  const Signature signature = read_signature(file);
  Progress progress(progress_in(arguments));
  progress.begin(file);
  check_signature(directory, file, signature, ring, "", seconds, progress);
  Verified verified = {.package = read_package_file(directory, path, seconds),
                       .key_id = text_of(signature.key_id)};
  check_comment(signature.comment, verified.package);
  return verified;
}

KeyRing ring_of(const Arguments& arguments) {
  const std::string* const key = arguments.value_of(kKey);
  if (key == nullptr) return read_key_ring();
  prepare_cryptography();
  return {.keys = {read_public_key(*key)}, .revoked = {}, .refused = {}};
}

Result run(const Arguments& arguments) {
  const KeyRing ring = ring_of(arguments);
  Result result;
  Json json = Json::array();
  for (const std::string& file : arguments.operands) {
    Verified verified;
    const Outcome outcome =
        attempt("verify", file, [&] { verified = verify(file, ring, arguments); });
    Json each = json_of("file", outcome);
    if (outcome.code == 0) {
      const PackageFile& package = verified.package;
      result.text +=
          printable(file + " is " + title_of(package) + ", signed by key " + verified.key_id) +
          '\n';
      each.update(
          {{"name", package.name}, {"version", package.version}, {"key_id", verified.key_id}});
    }
    result.status = std::max(result.status, outcome.status);
    json.push_back(each);
  }
  result.json = text_of(json);
  return result;
}

}  // namespace

const Command kVerifyCommand = {
    .word = "verify",
    .operands = kPackageFiles,
    .options = kOptions,
    .timeout = kToolsTimeout,
    .summary = "check the signatures of package files",
    .description =
        "Checks the signature beside each package file, FILE.minisig: a trusted key must have "
        "signed the file, and its trusted comment must name the package and its version. What "
        "'tarvio install' and 'tarvio restore' demand is set in /etc/tarvio/tarvio.conf; they "
        "check what they use by themselves.",
    .statuses =
        "0 all are signed, 1 failed for one or more, 5 a tool timed out, 6 the signature of "
        "one or more is missing, wrong or not trusted",
    .run = run,
};

}  // namespace client
