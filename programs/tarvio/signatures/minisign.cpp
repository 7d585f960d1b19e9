#include "signatures/minisign.h"

#include <algorithm>
#include <cerrno>

#include "base/line_cutter.h"
#include "process/failure.h"

namespace client {

namespace {

constexpr std::string_view kTrusted = "trusted comment: ";
constexpr Bytes<2> kPrehashed = {'E', 'D'};

[[noreturn]] void refuse(const std::string& what) { throw Failure(EBADMSG, what); }

template <size_t Size>
void append(std::string& bytes, const Bytes<Size>& more) {
  bytes.append(more.begin(), more.end());
}

// Takes an array off the beginning of the bytes, which hold it.
template <size_t Size>
void take(const unsigned char*& at, Bytes<Size>& array) {
  std::copy_n(at, Size, array.begin());
  at += Size;
}

const unsigned char* bytes_of(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string base64_of(const std::string& bytes) {
  std::string text(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  (void)sodium_bin2base64(text.data(), text.size(), bytes_of(bytes), bytes.size(),
                          sodium_base64_VARIANT_ORIGINAL);
  text.pop_back();  // the NUL
  return text;
}

// Lines may end as those of Windows do.
class Lines {
 public:
  explicit Lines(std::string_view text) : rest_(text) {}

  std::string_view next(std::string_view beginning) {
    ++number_;
    if (rest_.empty()) refuse("is truncated: line " + std::to_string(number_) + " is missing");
    std::string_view line = tarvio::take_line(rest_);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.find('\0') != std::string_view::npos || !line.starts_with(beginning)) {
      refuse("is damaged: line " + std::to_string(number_) + " does not begin with '" +
             std::string(beginning) + "'");
    }
    return line.substr(beginning.size());
  }

  // A line of base64 for exactly so many bytes.
  void next(unsigned char* bytes, size_t size) {
    const std::string_view line = next("");
    const char* end = nullptr;
    size_t count = 0;
    const int result = sodium_base642bin(bytes, size, line.data(), line.size(), nullptr, &count,
                                         &end, sodium_base64_VARIANT_ORIGINAL);
    // It takes some bytes beyond ASCII for letters.
    const bool is_ascii =
        std::all_of(line.begin(), line.end(), [](char each) { return (each & 0x80) == 0; });
    if (is_ascii && result == 0 && count == size && end == line.data() + line.size()) return;
    refuse("is damaged: line " + std::to_string(number_) + " is not base64 of " +
           std::to_string(size) + " bytes");
  }

  void end() const {
    if (!rest_.empty()) refuse("is damaged: it goes on after line " + std::to_string(number_));
  }

 private:
  std::string_view rest_;
  int number_ = 0;
};

}  // namespace

void prepare_cryptography() {
  if (sodium_init() < 0) throw Failure(EIO, "cannot prepare the cryptography: no random numbers");
}

std::string text_of(const KeyId& id) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (auto byte = id.rbegin(); byte != id.rend(); ++byte) {
    text += kDigits[*byte >> 4U];
    text += kDigits[*byte & 15U];
  }
  return text;
}

std::optional<KeyId> key_id_in(std::string_view text) {
  KeyId id = {};
  size_t count = 0;
  const char* end = nullptr;
  const bool is_id =
      text.size() == 2 * id.size() &&
      sodium_hex2bin(id.data(), id.size(), text.data(), text.size(), nullptr, &count, &end) == 0 &&
      count == id.size();
  if (!is_id) return std::nullopt;
  std::reverse(id.begin(), id.end());
  return id;
}

void read_key_lines(std::string_view text, unsigned char* bytes, size_t size) {
  Lines lines(text);
  (void)lines.next(kUntrusted);
  lines.next(bytes, size);
  lines.end();
}

PublicKey public_key_in(std::string_view text) {
  PublicKey key;
  Bytes<2> algorithm;
  Bytes<algorithm.size() + key.id.size() + key.bytes.size()> bytes;
  read_key_lines(text, bytes.data(), bytes.size());
  const unsigned char* at = bytes.data();
  take(at, algorithm);
  take(at, key.id);
  take(at, key.bytes);
  if (algorithm != kEd25519) refuse("is damaged: it is not a key of Ed25519");
  return key;
}

std::string text_of(const PublicKey& key) {
  std::string bytes;
  append(bytes, kEd25519);
  append(bytes, key.id);
  append(bytes, key.bytes);
  return std::string(kUntrusted) + "minisign public key " + text_of(key.id) + '\n' +
         base64_of(bytes) + '\n';
}

Signature signature_in(std::string_view text) {
  Signature signature;
  Bytes<2> algorithm;
  Bytes<algorithm.size() + signature.key_id.size() + signature.bytes.size()> bytes;
  if (text.empty()) refuse("is empty");
  Lines lines(text);
  (void)lines.next(kUntrusted);
  lines.next(bytes.data(), bytes.size());
  const unsigned char* at = bytes.data();
  take(at, algorithm);
  take(at, signature.key_id);
  take(at, signature.bytes);
  if (algorithm == kEd25519) {
    throw Failure(ENOTSUP, "has the legacy form, which is refused; sign with 'tarvio sign'");
  }
  if (algorithm != kPrehashed) refuse("is damaged: it is not a signature of Ed25519");
  signature.comment = lines.next(kTrusted);
  lines.next(signature.global.data(), signature.global.size());
  lines.end();
  return signature;
}

std::string text_of(const Signature& signature) {
  std::string bytes;
  append(bytes, kPrehashed);
  append(bytes, signature.key_id);
  append(bytes, signature.bytes);
  std::string global;
  append(global, signature.global);
  return std::string(kUntrusted) + "signature of key " + text_of(signature.key_id) + '\n' +
         base64_of(bytes) + '\n' + std::string(kTrusted) + signature.comment + '\n' +
         base64_of(global) + '\n';
}

bool is_signed_by(const PublicKey& key, const Signature& signature, const Hash& hash) {
  std::string global;
  append(global, signature.bytes);
  global += signature.comment;
  return crypto_sign_verify_detached(signature.bytes.data(), hash.data(), hash.size(),
                                     key.bytes.data()) == 0 &&
         crypto_sign_verify_detached(signature.global.data(), bytes_of(global), global.size(),
                                     key.bytes.data()) == 0;
}

}  // namespace client
