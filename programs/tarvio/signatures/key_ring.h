// The public keys of those whose packages the device accepts: /etc/tarvio/keys.
#ifndef TARVIO_CLIENT_SIGNATURES_KEY_RING_H
#define TARVIO_CLIENT_SIGNATURES_KEY_RING_H

#include <string>
#include <vector>

#include "signatures/minisign.h"

namespace client {

inline constexpr char kKeyDirectory[] = "/etc/tarvio/keys";

struct KeyRing {
  std::vector<PublicKey> keys;
  std::vector<KeyId> revoked;
  std::vector<std::string> refused;  // what is wrong with files that are not used

  // The keys of that id. Throws a Failure, with the remedy, when there are none or they are
  // revoked.
  [[nodiscard]] std::vector<PublicKey> find(const KeyId& id) const;
};

// Without the directory there are no keys. Throws a Failure when it, or what is revoked, cannot be
// trusted or read.
KeyRing read_key_ring();

// The key in a file. Throws a Failure that names the file.
PublicKey read_public_key(const std::string& path);

}  // namespace client

#endif
