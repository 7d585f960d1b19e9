// The password of a secret key.
#ifndef TARVIO_CLIENT_SIGNATURES_PASSWORD_H
#define TARVIO_CLIENT_SIGNATURES_PASSWORD_H

#include <optional>
#include <string>

#include "signatures/secret_key.h"

namespace client {

// Where a password comes from: the first line of a file, "-" for standard input; without one the
// terminal, where it is not shown.
using PasswordFile = std::optional<std::string>;

// Both throw a Failure, with the remedy.
void read_password(const PasswordFile& file, const std::string& key_file, SecretText& password);
// The same, twice on a terminal.
void read_new_password(const PasswordFile& file, const std::string& key_file, SecretText& password);

}  // namespace client

#endif
