#include "signatures/key_ring.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "process/failure.h"
#include "process/paths.h"
#include "signatures/small_file.h"

namespace client {

namespace {

constexpr std::string_view kExtension = ".pub";
constexpr char kRevoked[] = "/etc/tarvio/keys/revoked";
constexpr size_t kMaxKeyBytes = 4096;

PublicKey read_trusted_key(const std::string& path) {
  (void)check_owned_by_root(path, S_IFREG);
  return read_public_key(path);
}

// A revoked key is named by its id, or is there as a file.
KeyId revoked_id(const std::string& name) {
  const std::optional<KeyId> id = key_id_in(std::string_view(name).substr(0, name.find('.')));
  if (id) return *id;
  try {
    return read_trusted_key(std::string(kRevoked) + "/" + name).id;
  } catch (const Failure& failure) {
    throw Failure(failure.code(), std::string("cannot find out which key is revoked: ") +
                                      failure.what() +
                                      "; name the file after the id of the key, or remove it");
  }
}

}  // namespace

PublicKey read_public_key(const std::string& path) {
  std::array<char, kMaxKeyBytes> room;
  try {
    return public_key_in({room.data(), read_small_file(path, room)});
  } catch (const Failure& failure) {
    throw Failure(failure.code(), "public key '" + path + "' " + failure.what());
  }
}

std::vector<PublicKey> KeyRing::find(const KeyId& id) const {
  if (std::find(revoked.begin(), revoked.end(), id) != revoked.end()) {
    throw Failure(EKEYREVOKED, "was made with revoked key " + text_of(id) +
                                   "; get a package that is signed with another key");
  }
  std::vector<PublicKey> found;
  std::copy_if(keys.begin(), keys.end(), std::back_inserter(found),
               [&](const PublicKey& key) { return key.id == id; });
  if (!found.empty()) return found;
  std::string also;
  for (const std::string& what : refused) also += " (" + what + ")";
  throw Failure(ENOKEY, "was made with unknown key " + text_of(id) +
                            "; get the package from its vendor, and trust the key only if it is "
                            "the vendor's" +
                            also);
}

KeyRing read_key_ring() {
  prepare_cryptography();
  KeyRing ring;
  // Who can change the outer one can take the inner one away.
  if (!check_owned_by_root(directory_of(kKeyDirectory), S_IFDIR) ||
      !check_owned_by_root(kKeyDirectory, S_IFDIR)) {
    return ring;
  }
  for (const std::string& name : entries_of(kKeyDirectory)) {
    if (!name.ends_with(kExtension)) continue;
    // One that a power cut has left half written must not keep the others from being used.
    try {
      ring.keys.push_back(read_trusted_key(std::string(kKeyDirectory) + "/" + name));
    } catch (const Failure& failure) {
      ring.refused.emplace_back(failure.what());
    }
  }
  if (!check_owned_by_root(kRevoked, S_IFDIR)) return ring;
  for (const std::string& name : entries_of(kRevoked)) {
    if (!name.starts_with('.')) ring.revoked.push_back(revoked_id(name));
  }
  return ring;
}

}  // namespace client
