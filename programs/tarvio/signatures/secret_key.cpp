#include "signatures/secret_key.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "process/failure.h"

namespace client {

namespace {

constexpr Bytes<2> kScrypt = {'S', 'c'};
constexpr Bytes<2> kNoPassword = {0, 0};
constexpr Bytes<2> kBlake2b = {'B', '2'};

// What a password encrypts: key id, key and checksum.
constexpr size_t kChecksumSize = 32;
constexpr size_t kEncryptedSize =
    std::tuple_size_v<KeyId> + crypto_sign_SECRETKEYBYTES + kChecksumSize;
using Encrypted = SecretBytes<kEncryptedSize>;
using Checksum = Bytes<kChecksumSize>;
using Salt = Bytes<crypto_pwhash_scryptsalsa208sha256_SALTBYTES>;

// The beginning of a file: three names, the salt and the two costs.
constexpr size_t kHeaderSize = 3 * kEd25519.size() + std::tuple_size_v<Salt> + 2 * sizeof(uint64_t);
using FileBytes = SecretBytes<kHeaderSize + kEncryptedSize>;

// How expensive it is to guess a password.
struct Cost {
  uint64_t operations = crypto_pwhash_scryptsalsa208sha256_OPSLIMIT_SENSITIVE;
  uint64_t memory = kPasswordMemory;

  [[nodiscard]] bool is_possible() const {
    return operations >= crypto_pwhash_scryptsalsa208sha256_OPSLIMIT_MIN &&
           operations <= crypto_pwhash_scryptsalsa208sha256_OPSLIMIT_SENSITIVE &&
           memory >= crypto_pwhash_scryptsalsa208sha256_MEMLIMIT_MIN && memory <= kPasswordMemory;
  }
};

struct Header {
  Bytes<2> password_hash = {};
  Salt salt = {};
  Cost cost = {0, 0};
};

uint64_t number_in(const unsigned char* bytes) {
  uint64_t number = 0;
  for (size_t i = sizeof number; i-- > 0;) number = number << 8U | bytes[i];
  return number;
}

unsigned char* write_number(unsigned char* at, uint64_t number) {
  for (size_t i = 0; i < sizeof number; ++i, number >>= 8U) {
    *at++ = static_cast<unsigned char>(number & 255U);
  }
  return at;
}

Header header_in(const unsigned char* at) {
  Header header;
  const bool is_known = std::equal(kEd25519.begin(), kEd25519.end(), at) &&
                        std::equal(kBlake2b.begin(), kBlake2b.end(), at + 4);
  std::copy_n(at + 2, header.password_hash.size(), header.password_hash.begin());
  if (!is_known || (header.password_hash != kScrypt && header.password_hash != kNoPassword)) {
    throw Failure(EBADMSG, "is damaged: it is not a secret key of Ed25519");
  }
  at += 6;
  std::copy_n(at, header.salt.size(), header.salt.begin());
  at += header.salt.size();
  header.cost = {number_in(at), number_in(at + sizeof(uint64_t))};
  if (header.password_hash == kScrypt && !header.cost.is_possible()) {
    throw Failure(EBADMSG, "is damaged: its password cost is too high");
  }
  return header;
}

unsigned char* write_header(unsigned char* at, const Header& header) {
  at = std::copy(kEd25519.begin(), kEd25519.end(), at);
  at = std::copy(header.password_hash.begin(), header.password_hash.end(), at);
  at = std::copy(kBlake2b.begin(), kBlake2b.end(), at);
  at = std::copy(header.salt.begin(), header.salt.end(), at);
  return write_number(write_number(at, header.cost.operations), header.cost.memory);
}

// Encrypts or decrypts. False without the memory for it.
bool apply_password(std::string_view password, const Salt& salt, const Cost& cost,
                    Bytes<kEncryptedSize>& bytes) {
  Encrypted stream;
  if (crypto_pwhash_scryptsalsa208sha256(stream->data(), stream->size(), password.data(),
                                         password.size(), salt.data(), cost.operations,
                                         static_cast<size_t>(cost.memory)) != 0) {
    return false;
  }
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] ^= (*stream)[i];
  return true;
}

Checksum checksum_of(const Bytes<kEncryptedSize>& bytes) {
  Checksum checksum;
  crypto_generichash_state state;
  (void)crypto_generichash_init(&state, nullptr, 0, checksum.size());
  (void)crypto_generichash_update(&state, kEd25519.data(), kEd25519.size());
  (void)crypto_generichash_update(&state, bytes.data(), bytes.size() - checksum.size());
  (void)crypto_generichash_final(&state, checksum.data(), checksum.size());
  return checksum;
}

void write_lines(std::string_view comment, const Bytes<kHeaderSize + kEncryptedSize>& bytes,
                 SecretText& file) {
  const std::span<char> room = file.room();
  char* at = std::copy(kUntrusted.begin(), kUntrusted.end(), room.data());
  at = std::copy(comment.begin(), comment.end(), at);
  *at++ = '\n';
  const auto used = static_cast<size_t>(at - room.data());
  (void)sodium_bin2base64(at, room.size() - used, bytes.data(), bytes.size(),
                          sodium_base64_VARIANT_ORIGINAL);
  at += strlen(at);
  *at++ = '\n';
  file.resize(static_cast<size_t>(at - room.data()));
}

SignatureBytes signature_of(const unsigned char* bytes, size_t size,
                            const Bytes<crypto_sign_SECRETKEYBYTES>& key) {
  SignatureBytes signature;
  (void)crypto_sign_detached(signature.data(), nullptr, bytes, size, key.data());
  return signature;
}

}  // namespace

SecretKey::SecretKey() {
  Bytes<crypto_sign_PUBLICKEYBYTES> public_bytes;
  (void)crypto_sign_keypair(public_bytes.data(), bytes_->data());
  randombytes_buf(id_.data(), id_.size());
}

bool has_password(std::string_view text) {
  FileBytes file;
  read_key_lines(text, file->data(), file->size());
  return header_in(file->data()).password_hash == kScrypt;
}

SecretKey::SecretKey(std::string_view text, std::string_view password) {
  FileBytes file;
  read_key_lines(text, file->data(), file->size());
  const Header header = header_in(file->data());
  Encrypted encrypted;
  std::copy_n(file->data() + kHeaderSize, kEncryptedSize, encrypted->data());
  const bool is_encrypted = header.password_hash == kScrypt;
  if (is_encrypted && !apply_password(password, header.salt, header.cost, *encrypted)) {
    throw Failure(ENOMEM, "needs " + std::to_string(header.cost.memory >> 20U) +
                              " MiB of memory for its password, which are not free");
  }
  const unsigned char* const key = encrypted->data() + id_.size();
  const unsigned char* const checksum = key + bytes_->size();
  std::copy_n(encrypted->data(), id_.size(), id_.begin());
  std::copy_n(key, bytes_->size(), bytes_->begin());
  const Checksum expected = checksum_of(*encrypted);
  // Without a password minisign leaves it empty.
  const bool has_checksum = is_encrypted || sodium_is_zero(checksum, expected.size()) == 0;
  if (has_checksum && sodium_memcmp(checksum, expected.data(), expected.size()) != 0) {
    throw Failure(EKEYREJECTED, is_encrypted ? "cannot be opened: wrong password"
                                             : "is damaged: its checksum is wrong");
  }
  if (!is_whole()) throw Failure(EBADMSG, "is damaged: its two halves do not belong together");
}

// The second half is the public key of the first one.
bool SecretKey::is_whole() const {
  SecretBytes<crypto_sign_SEEDBYTES> seed;
  SecretBytes<crypto_sign_SECRETKEYBYTES> again;
  Bytes<crypto_sign_PUBLICKEYBYTES> public_bytes;
  (void)crypto_sign_ed25519_sk_to_seed(seed->data(), bytes_->data());
  (void)crypto_sign_seed_keypair(public_bytes.data(), again->data(), seed->data());
  return sodium_memcmp(again->data(), bytes_->data(), again->size()) == 0;
}

PublicKey SecretKey::public_key() const {
  PublicKey key = {.id = id_};
  std::copy_n(bytes_->data() + crypto_sign_SEEDBYTES, key.bytes.size(), key.bytes.begin());
  return key;
}

uint64_t SecretKey::write_to(SecretText& file, std::string_view password) const {
  Encrypted encrypted;
  std::copy(bytes_->begin(), bytes_->end(), std::copy(id_.begin(), id_.end(), encrypted->begin()));
  const Checksum checksum = checksum_of(*encrypted);
  std::copy(checksum.begin(), checksum.end(), encrypted->end() - kChecksumSize);
  Header header;
  if (!password.empty()) {
    header.password_hash = kScrypt;
    header.cost = {};
    randombytes_buf(header.salt.data(), header.salt.size());
    // A machine with little memory makes it as expensive as it can, as minisign does.
    while (!apply_password(password, header.salt, header.cost, *encrypted)) {
      header.cost = {header.cost.operations / 2, header.cost.memory / 2};
      if (!header.cost.is_possible()) {
        throw Failure(ENOMEM, "not enough memory to encrypt the secret key");
      }
    }
  }
  FileBytes bytes;
  std::copy(encrypted->begin(), encrypted->end(), write_header(bytes->data(), header));
  write_lines(password.empty() ? "minisign secret key" : "minisign encrypted secret key", *bytes,
              file);
  return header.cost.memory;
}

Signature SecretKey::sign(const Hash& hash, const std::string& comment) const {
  Signature signature = {
      .key_id = id_, .bytes = signature_of(hash.data(), hash.size(), *bytes_), .comment = comment};
  std::string global(signature.bytes.begin(), signature.bytes.end());
  global += comment;
  signature.global =
      signature_of(reinterpret_cast<const unsigned char*>(global.data()), global.size(), *bytes_);
  return signature;
}

}  // namespace client
