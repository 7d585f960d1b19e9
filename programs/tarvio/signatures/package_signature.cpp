#include "signatures/package_signature.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>

#include "process/failure.h"
#include "process/paths.h"
#include "process/text_pieces.h"
#include "runtime/whole_file.h"
#include "signatures/file_hash.h"
#include "signatures/small_file.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr std::string_view kPackage = "package:";
constexpr std::string_view kVersion = "version:";
constexpr mode_t kForAll = 0644;
constexpr char kSignAgain[] =
    "; sign it with 'tarvio sign', or with the trusted comment 'package:NAME version:VERSION'";

// What cannot be a word of the comment cannot be found in it.
void check_word(const std::string& text) {
  const auto is_odd = [](unsigned char each) { return each <= ' ' || each == 0x7f; };
  if (std::none_of(text.begin(), text.end(), is_odd)) return;
  throw Failure(EINVAL, "its name or version contains a blank or a control character");
}

// The only word with that beginning, without it; none for no word or several.
std::optional<std::string> value_in_comment(std::string_view comment, std::string_view beginning) {
  std::optional<std::string> value;
  for (std::string_view word = take_word(comment); !word.empty(); word = take_word(comment)) {
    if (!word.starts_with(beginning)) continue;
    if (value) return std::nullopt;
    value = word.substr(beginning.size());
  }
  return value;
}

void check_room(const std::string& directory, uint64_t bytes) {
  struct statvfs status = {};
  if (statvfs(directory.c_str(), &status) != 0 || status.f_blocks == 0) return;
  const uint64_t free_bytes = uint64_t{status.f_bavail} * status.f_frsize;
  if (bytes <= free_bytes) return;
  throw Failure(ENOSPC, "not enough space in '" + directory_of(directory) +
                            "' for a private copy: " + size_words(bytes) + " needed, " +
                            size_words(free_bytes) + " free");
}

const char* remedy_for(int code) {
  if (code == ENOENT) return "; get it from where the package comes from";
  return code == EBADMSG || code == EFBIG ? "; fetch it again" : "";
}

[[noreturn]] void fail_of_signature(const std::string& file, const Failure& failure) {
  throw Failure(
      failure.code(),
      "its signature '" + signature_path(file) + "' " + failure.what() + remedy_for(failure.code()),
      kNotTrusted);
}

// Works on the signature of a file, and names it when that fails.
template <typename Work>
auto of_signature(const std::string& file, Work work) {
  try {
    return work();
  } catch (const Failure& failure) {
    fail_of_signature(file, failure);
  }
}

}  // namespace

std::string comment_for(const PackageFile& package) {
  check_word(package.name);
  check_word(package.version);
  return std::string(kPackage) + package.name + ' ' + std::string(kVersion) + package.version;
}

void check_comment(const std::string& comment, const PackageFile& package) {
  const std::optional<std::string> name = value_in_comment(comment, kPackage);
  const std::optional<std::string> version = value_in_comment(comment, kVersion);
  if (!name || !version) {
    throw Failure(EKEYREJECTED,
                  std::string("the trusted comment of its signature does not name one package and "
                              "version") +
                      kSignAgain,
                  kNotTrusted);
  }
  if (name == package.name && version == package.version) return;
  throw Failure(EKEYREJECTED,
                "its signature is for " +
                    title_of({.name = *name, .version = *version, .kind = std::nullopt}) +
                    ", but the package is " + title_of(package) + kSignAgain,
                kNotTrusted);
}

Signature read_signature(const std::string& file) {
  const auto room = std::make_unique<std::array<char, kMaxSignatureBytes>>();
  return of_signature(file, [&] {
    return signature_in({room->data(), read_small_file(signature_path(file), *room)});
  });
}

void check_signature(const WorkDirectory& directory, const std::string& file,
                     const Signature& signature, const KeyRing& ring, const std::string& copy,
                     double seconds, Progress& progress) {
  const std::vector<PublicKey> keys =
      of_signature(file, [&] { return ring.find(signature.key_id); });
  const RegularFile opened = open_regular_file(file);
  if (!copy.empty()) check_room(directory.path(), opened.bytes);
  const Hash hash = hash_file(directory, opened.fd.get(), opened.bytes, copy, seconds, progress);
  const bool is_good = std::any_of(keys.begin(), keys.end(), [&](const PublicKey& key) {
    return is_signed_by(key, signature, hash);
  });
  if (is_good) return;
  fail_of_signature(file, Failure(EKEYREJECTED, "does not match the file; fetch both again"));
}

Signature sign_package(const WorkDirectory& directory, const std::string& file,
                       const SecretKey& key, const PackageFile& package, double seconds,
                       Progress& progress) {
  const std::string comment = comment_for(package);
  const RegularFile opened = open_regular_file(file);
  return key.sign(hash_file(directory, opened.fd.get(), opened.bytes, "", seconds, progress),
                  comment);
}

void write_signature(const std::string& file, const Signature& signature) {
  const std::string path = signature_path(file);
  if (!runtime::write_whole_file(path.c_str(), text_of(signature), kForAll)) {
    throw Failure::of_system("cannot write '" + path + "'");
  }
}

void remove_signature(const std::string& file) {
  const std::string path = signature_path(file);
  if (unlink(path.c_str()) != 0 && errno != ENOENT) {
    throw Failure::of_system("cannot remove the old signature '" + path + "'");
  }
}

}  // namespace client
