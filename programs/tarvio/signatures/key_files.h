// The files of secret keys.
#ifndef TARVIO_CLIENT_SIGNATURES_KEY_FILES_H
#define TARVIO_CLIENT_SIGNATURES_KEY_FILES_H

#include <memory>
#include <string>

#include "signatures/password.h"
#include "signatures/secret_key.h"

namespace client {

// The key in a file. Throws a Failure that names the file.
std::unique_ptr<SecretKey> open_secret_key(const std::string& path, const PasswordFile& file);

struct NewKey {
  std::string secret_file;
  std::string public_file;
  PasswordFile password_file;
  bool has_password = true;
  bool replaces = false;  // existing files
};

// Makes a pair of keys and writes their files, the secret one for its owner alone. Throws a
// Failure.
PublicKey make_keys(const NewKey& wanted);

}  // namespace client

#endif
