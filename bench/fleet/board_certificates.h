// Certificates of many boards, as packaging/fleet/certificates makes them, but without a process
// for each.
#ifndef TARVIO_BENCH_FLEET_BOARD_CERTIFICATES_H
#define TARVIO_BENCH_FLEET_BOARD_CERTIFICATES_H

#include <openssl/types.h>

#include <filesystem>
#include <memory>
#include <string>

namespace tarvio_bench {

struct FreeOpenSsl {
  void operator()(EVP_PKEY* key) const noexcept;
  void operator()(X509* certificate) const noexcept;
};

class BoardCertificates {
 public:
  // directory  of the authority, ca.key and ca.crt, and of what is made. Ends the program when
  // there
  //            is no authority.
  explicit BoardCertificates(std::filesystem::path directory);

  // NAME.key and NAME.crt.
  void make(const std::string& name) const;

 private:
  const std::filesystem::path directory_;
  std::unique_ptr<EVP_PKEY, FreeOpenSsl> authority_key_;
  std::unique_ptr<X509, FreeOpenSsl> authority_;
};

}  // namespace tarvio_bench

#endif
