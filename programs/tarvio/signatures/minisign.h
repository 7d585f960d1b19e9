// Keys and signatures as minisign writes them: comments and base64, one line each.
#ifndef TARVIO_CLIENT_SIGNATURES_MINISIGN_H
#define TARVIO_CLIENT_SIGNATURES_MINISIGN_H

#include <sodium.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace client {

template <size_t Size>
using Bytes = std::array<unsigned char, Size>;

using KeyId = Bytes<8>;
using Hash = Bytes<crypto_generichash_BYTES_MAX>;  // BLAKE2b of a whole file
using SignatureBytes = Bytes<crypto_sign_BYTES>;

struct PublicKey {
  KeyId id = {};
  Bytes<crypto_sign_PUBLICKEYBYTES> bytes = {};
};

// Of a file's hash, and of the trusted comment.
struct Signature {
  KeyId key_id = {};
  SignatureBytes bytes = {};
  std::string comment;  // the trusted one
  SignatureBytes global = {};
};

inline constexpr Bytes<2> kEd25519 = {'E', 'd'};  // of keys, and of the legacy form of signatures
inline constexpr std::string_view kUntrusted = "untrusted comment: ";
// No signature file is larger.
inline constexpr size_t kMaxSignatureBytes = 16384;

// Before anything else of the library for cryptography is used. Throws a Failure.
void prepare_cryptography();

// As key files show it: "269972A4238A709C".
std::string text_of(const KeyId& id);
// None for a text that is not 16 hexadecimal digits.
std::optional<KeyId> key_id_in(std::string_view text);

// The contents of files.
std::string text_of(const PublicKey& key);
std::string text_of(const Signature& signature);

// All throw a Failure that says what is wrong with a text.
PublicKey public_key_in(std::string_view text);
Signature signature_in(std::string_view text);
// Of a key file: its comment, and a line of base64 for so many bytes.
void read_key_lines(std::string_view text, unsigned char* bytes, size_t size);

// Whether the key has signed the hash and the comment.
bool is_signed_by(const PublicKey& key, const Signature& signature, const Hash& hash);

}  // namespace client

#endif
