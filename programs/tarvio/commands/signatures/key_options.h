// Options that the commands for signatures share.
#ifndef TARVIO_CLIENT_COMMANDS_SIGNATURES_KEY_OPTIONS_H
#define TARVIO_CLIENT_COMMANDS_SIGNATURES_KEY_OPTIONS_H

#include <optional>
#include <string>

#include "commands/arguments.h"
#include "signatures/key_files.h"

namespace client {

inline constexpr Option kPasswordFile = {
    .name = "password-file",
    .value = "FILE",
    .offer = Offer::kFiles,
    .help =
        "the password is the first line of FILE, or of - for standard input; default: ask for it"};

// Null when the option is not given.
inline PasswordFile password_file_in(const Arguments& arguments) {
  const std::string* const given = arguments.value_of(kPasswordFile);
  return given == nullptr ? std::nullopt : PasswordFile(*given);
}

}  // namespace client

#endif
