#include "fleet/board_certificates.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <utility>

#include "base/owners.h"
#include "support/say.h"

namespace tarvio_bench {

namespace {

constexpr long kSeconds = 24 * 60 * 60;

using File = std::unique_ptr<FILE, tarvio::CloseFile>;
using Key = std::unique_ptr<EVP_PKEY, FreeOpenSsl>;
using Certificate = std::unique_ptr<X509, FreeOpenSsl>;

File open_file(const std::filesystem::path& path, const char* mode) {
  File file(std::fopen(path.c_str(), mode));
  if (file == nullptr) die("cannot open " + path.string());
  return file;
}

void require(bool is_done) {
  if (!is_done) die("cannot make the certificate of a board");
}

void add_extension(X509* certificate, int kind, const char* value) {
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
  require(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1);
  X509_EXTENSION_free(extension);
}

}  // namespace

void FreeOpenSsl::operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
void FreeOpenSsl::operator()(X509* certificate) const noexcept { X509_free(certificate); }

BoardCertificates::BoardCertificates(std::filesystem::path directory)
    : directory_(std::move(directory)) {
  authority_key_.reset(
      PEM_read_PrivateKey(open_file(directory_ / "ca.key", "re").get(), nullptr, nullptr, nullptr));
  authority_.reset(
      PEM_read_X509(open_file(directory_ / "ca.crt", "re").get(), nullptr, nullptr, nullptr));
  if (authority_key_ == nullptr || authority_ == nullptr) die("cannot read the authority");
}

void BoardCertificates::make(const std::string& name) const {
  const Key key(EVP_EC_gen("P-256"));
  const Certificate certificate(X509_new());
  require(key != nullptr && certificate != nullptr);
  X509* const made = certificate.get();
  uint64_t serial = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1);
  X509_NAME* const subject = X509_get_subject_name(made);
  require(X509_set_version(made, X509_VERSION_3) == 1 &&
          ASN1_INTEGER_set_uint64(X509_get_serialNumber(made), serial) == 1 &&
          X509_gmtime_adj(X509_getm_notBefore(made), 0) != nullptr &&
          X509_gmtime_adj(X509_getm_notAfter(made), kSeconds) != nullptr &&
          X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1,
                                     0) == 1 &&
          X509_set_issuer_name(made, X509_get_subject_name(authority_.get())) == 1 &&
          X509_set_pubkey(made, key.get()) == 1);
  add_extension(made, NID_basic_constraints, "critical,CA:FALSE");
  add_extension(made, NID_key_usage, "critical,digitalSignature");
  add_extension(made, NID_ext_key_usage, "clientAuth");
  require(X509_sign(made, authority_key_.get(), EVP_sha256()) > 0);
  require(PEM_write_PrivateKey(open_file(directory_ / (name + ".key"), "we").get(), key.get(),
                               nullptr, nullptr, 0, nullptr, nullptr) == 1);
  require(PEM_write_X509(open_file(directory_ / (name + ".crt"), "we").get(), made) == 1);
}

}  // namespace tarvio_bench
