// tarvio keygen: a pair of keys for signatures.
#include <array>
#include <string>

#include "commands/commands.h"
#include "commands/signatures/key_options.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr Option kNoPassword = {.name = "no-password",
                                .help = "leave the secret key unencrypted, for a build machine"};
constexpr Option kForce = {.name = "force", .help = "replace existing files"};
constexpr std::array kOptions = {kPasswordFile, kNoPassword, kForce};

Result run(const Arguments& arguments) {
  const std::string& name = arguments.operands.front();
  if (arguments.has(kPasswordFile) && arguments.has(kNoPassword)) {
    throw UsageError("option '--password-file' contradicts '--no-password'");
  }
  const NewKey wanted = {.secret_file = name + ".key",
                         .public_file = name + ".pub",
                         .password_file = password_file_in(arguments),
                         .has_password = !arguments.has(kNoPassword),
                         .replaces = arguments.has(kForce)};
  std::string id;
  const Outcome outcome =
      attempt("create the keys", name, [&] { id = text_of(make_keys(wanted).id); });
  Json json = json_of("name", outcome);
  if (outcome.code != 0) return {.status = outcome.status, .json = text_of(json)};
  json.update(
      {{"key_id", id}, {"secret_key", wanted.secret_file}, {"public_key", wanted.public_file}});
  return {.text = printable("created key " + id + ": " + wanted.secret_file + " (secret), " +
                            wanted.public_file) +
                  '\n',
          .json = text_of(json)};
}

}  // namespace

const Command kKeygenCommand = {
    .word = "keygen",
    .operands = {.name = "NAME",
                 .min = 1,
                 .max = 1,
                 .missing = "the NAME of the keys",
                 .offer = Offer::kFiles},
    .options = kOptions,
    .timeout = kNoTimeout,
    .summary = "make a pair of keys for signatures",
    .description =
        "Makes a secret key, NAME.key, which signs packages, and its public key, NAME.pub, which "
        "devices need in /etc/tarvio/keys to accept them. Both are files of minisign. The secret "
        "key is for its owner alone, and encrypted with a password.",
    .statuses = "0 done, 1 failed",
    .run = run,
};

}  // namespace client
