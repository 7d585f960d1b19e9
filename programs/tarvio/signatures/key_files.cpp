#include "signatures/key_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/owners.h"
#include "base/pipe.h"
#include "process/failure.h"
#include "runtime/whole_file.h"
#include "signatures/small_file.h"

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

void write_new(const std::string& path, std::string_view text, mode_t mode, bool replaces) {
  const std::string complaint = "cannot write '" + path + "'";
  if (replaces) {
    if (!runtime::write_whole_file(path.c_str(), text, mode)) throw Failure::of_system(complaint);
    return;
  }
  const tarvio::Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!file.valid()) throw Failure::of_system(complaint);
  const bool is_written = fchmod(file.get(), mode) == 0 && tarvio::write_all(file.get(), text) &&
                          fsync(file.get()) == 0;
  if (is_written) return;
  remove(path);
  throw Failure::of_system(complaint);
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
  key.write_to(text, password.text());
  write_new(wanted.secret_file, text.text(), kOwnerOnly, wanted.replaces);
  try {
    write_new(wanted.public_file, text_of(key.public_key()), kForAll, wanted.replaces);
  } catch (const Failure&) {
    if (!wanted.replaces) remove(wanted.secret_file);
    throw;
  }
  return key.public_key();
}

}  // namespace client
