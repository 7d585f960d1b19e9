// Secret keys, and what is made with them. Memory that held a secret is wiped.
#ifndef TARVIO_CLIENT_SIGNATURES_SECRET_KEY_H
#define TARVIO_CLIENT_SIGNATURES_SECRET_KEY_H

#include <sodium.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "signatures/minisign.h"

namespace client {

// Room for a secret, wiped at the end.
template <size_t Size>
class SecretBytes {
 public:
  SecretBytes() = default;
  ~SecretBytes() { sodium_memzero(bytes_.data(), Size); }
  SecretBytes(const SecretBytes&) = delete;
  SecretBytes& operator=(const SecretBytes&) = delete;

  Bytes<Size>& operator*() { return bytes_; }
  Bytes<Size>* operator->() { return &bytes_; }
  const Bytes<Size>& operator*() const { return bytes_; }
  const Bytes<Size>* operator->() const { return &bytes_; }

 private:
  Bytes<Size> bytes_ = {};
};

// A text that is wiped at the end. It never moves, so that no copy is left.
class SecretText {
 public:
  SecretText() = default;
  ~SecretText() { sodium_memzero(room_.data(), room_.size()); }
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;

  [[nodiscard]] std::span<char> room() { return room_; }
  void resize(size_t size) { size_ = size; }
  [[nodiscard]] std::string_view text() const { return {room_.data(), size_}; }

 private:
  std::array<char, 1024> room_ = {};
  size_t size_ = 0;
};

// Whether what a file holds is encrypted. Throws a Failure that says what is wrong with it.
bool has_password(std::string_view text);

inline constexpr uint64_t kPasswordMemory = crypto_pwhash_scryptsalsa208sha256_MEMLIMIT_SENSITIVE;

class SecretKey {
 public:
  // A new one. The cryptography is prepared.
  SecretKey();
  // What a file holds. Throws a Failure that says what is wrong with it, or that the password is.
  SecretKey(std::string_view text, std::string_view password);

  [[nodiscard]] const KeyId& id() const { return id_; }
  [[nodiscard]] PublicKey public_key() const;
  // Writes what a file holds, encrypted if the password is not empty. Returns the bytes of memory
  // that each guess of the password then takes: less than kPasswordMemory where that is not free.
  // Throws a Failure when there is not enough to make guessing expensive.
  uint64_t write_to(SecretText& file, std::string_view password) const;
  [[nodiscard]] Signature sign(const Hash& hash, const std::string& comment) const;

 private:
  [[nodiscard]] bool is_whole() const;

  KeyId id_ = {};
  SecretBytes<crypto_sign_SECRETKEYBYTES> bytes_;
};

}  // namespace client

#endif
