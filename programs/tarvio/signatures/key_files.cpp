#include "signatures/key_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/owners.h"
#include "base/pipe.h"
#include "process/failure.h"
#include "process/paths.h"
#include "signatures/small_file.h"
#include "terminal/output.h"

namespace client {

namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kForAll = 0644;

void check_absent(const std::string& path) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return;
  throw Failure(EEXIST, "'" + path + "' already exists; use --force to replace it");
}

void remove(const std::string& path) {
  const tarvio::ErrnoKeeper keeper;
  (void)unlink(path.c_str());
}

// On disk when it returns.
void write_new(const std::string& path, std::string_view text, mode_t mode) {
  const std::string complaint = "cannot write '" + path + "'";
  const tarvio::Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!file.valid()) throw Failure::of_system(complaint);
  const bool is_written = fchmod(file.get(), mode) == 0 && tarvio::write_all(file.get(), text) &&
                          fsync(file.get()) == 0;
  if (is_written) return;
  remove(path);
  throw Failure::of_system(complaint);
}

// Both are on disk before the first one takes the place of an old file: a power cut leaves a whole
// secret key, from which the public one can be made again.
void write_files(const NewKey& wanted, std::string_view secret, std::string_view public_text) {
  const char* const ending = wanted.replaces ? ".new" : "";
  const std::string new_secret = wanted.secret_file + ending;
  const std::string new_public = wanted.public_file + ending;
  if (wanted.replaces) {
    remove(new_secret);
    remove(new_public);
  }
  write_new(new_secret, secret, kOwnerOnly);
  try {
    write_new(new_public, public_text, kForAll);
  } catch (const Failure&) {
    remove(new_secret);
    throw;
  }
  try {
    (void)put_in_place(new_secret, wanted.secret_file);
    (void)put_in_place(new_public, wanted.public_file);
  } catch (const Failure&) {
    remove(new_secret);
    remove(new_public);
    throw;
  }
}

void warn_of_cheap_guesses(const NewKey& wanted, uint64_t memory) {
  if (!wanted.has_password || memory >= kPasswordMemory) return;
  complain("the password of '" + wanted.secret_file + "' costs only " +
           std::to_string(memory >> 20U) + " MiB of memory to try, not " +
           std::to_string(kPasswordMemory >> 20U) +
           ", because no more is free; use a longer password, or make the key on another machine");
}

}  // namespace

std::unique_ptr<SecretKey> open_secret_key(const std::string& path, const PasswordFile& file) {
  prepare_cryptography();
  SecretText text;
  const auto of_file = [&](const auto& work) {
    try {
      return work();
    } catch (const Failure& failure) {
      throw Failure(failure.code(), "secret key '" + path + "' " + failure.what());
    }
  };
  const bool is_encrypted = of_file([&] {
    text.resize(read_small_file(path, text.room()));
    return has_password(text.text());
  });
  SecretText password;
  if (is_encrypted) read_password(file, path, password);
  return of_file([&] { return std::make_unique<SecretKey>(text.text(), password.text()); });
}

PublicKey make_keys(const NewKey& wanted) {
  prepare_cryptography();
  if (!wanted.replaces) {
    check_absent(wanted.secret_file);
    check_absent(wanted.public_file);
  }
  SecretText password;
  if (wanted.has_password) {
    read_new_password(wanted.password_file, wanted.secret_file, password);
  }
  const SecretKey key;
  SecretText text;
  warn_of_cheap_guesses(wanted, key.write_to(text, password.text()));
  write_files(wanted, text.text(), text_of(key.public_key()));
  return key.public_key();
}

}  // namespace client
