// Signatures and keys, as the client reads them.
#include "fuzzer.h"
#include "process/failure.h"
#include "signatures/minisign.h"
#include "signatures/secret_key.h"

namespace tarvio_fuzz {
namespace {

// What the corpus has of it, and all that its secret key has ever signed.
constexpr char kKey[] =
    "untrusted comment: minisign public key 9BFE29326DD36BDE\n"
    "RWTea9NtMin+m6HhS6rf02NqSsM/Zgcvq969vCbVRMDuooL1ciY0Mluv\n";
constexpr char kSignedText[] = "clock\n";
constexpr char kSignedComment[] = "clock 1.0";

client::Hash hash_of(std::string_view text) {
  client::Hash hash;
  (void)crypto_generichash(hash.data(), hash.size(),
                           reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                           nullptr, 0);
  return hash;
}

bool are_equal(const client::Signature& one, const client::Signature& other) {
  return one.key_id == other.key_id && one.bytes == other.bytes && one.comment == other.comment &&
         one.global == other.global;
}

std::string check_signature(const std::string& text) {
  const client::Signature signature = client::signature_in(text);
  if (!are_equal(client::signature_in(client::text_of(signature)), signature)) {
    return "the signature reads otherwise once it is written";
  }
  const client::PublicKey key = client::public_key_in(kKey);
  if (client::is_signed_by(key, signature, hash_of("another text"))) return "it signs another text";
  const bool holds = client::is_signed_by(key, signature, hash_of(kSignedText));
  return holds && signature.comment != kSignedComment ? "it signs another comment" : "";
}

std::string check_public_key(const std::string& text) {
  const client::PublicKey key = client::public_key_in(text);
  const client::PublicKey again = client::public_key_in(client::text_of(key));
  if (again.id != key.id || again.bytes != key.bytes) return "the key reads otherwise";
  return client::key_id_in(client::text_of(key.id)) == key.id ? "" : "its id reads otherwise";
}

// One with a password takes a second, whatever is in it.
std::string check_secret_key(const std::string& text) {
  if (client::has_password(text)) return "";
  const client::SecretKey key(text, "");
  client::SecretText written;
  key.write_to(written, "");
  const client::SecretKey again(written.text(), "");
  const client::Hash hash = hash_of(kSignedText);
  const client::Signature signature = again.sign(hash, kSignedComment);
  return client::is_signed_by(key.public_key(), signature, hash) ? "" : "it signs wrongly";
}

std::string check_files(const std::string& text) {
  client::prepare_cryptography();
  for (const auto check : {check_signature, check_public_key, check_secret_key}) {
    try {
      std::string wrong = check(text);
      if (!wrong.empty()) return wrong;
    } catch (const client::Failure& failure) {
      if (failure.what()[0] == '\0') return "refused without a reason";
    }
  }
  return "";
}

}  // namespace

const Fuzzer kSignature = {.corpus = "signature", .check = check_files};

}  // namespace tarvio_fuzz
