// Package files with signatures, keys to sign with, and a device that trusts some of them.
#ifndef TARVIO_TESTS_TARVIO_SIGNATURES_SIGNED_PACKAGES_H
#define TARVIO_TESTS_TARVIO_SIGNATURES_SIGNED_PACKAGES_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/files.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {

inline constexpr char kKeys[] = "/etc/tarvio/keys";
inline constexpr char kRevoked[] = "/etc/tarvio/keys/revoked";
inline constexpr char kPolicy[] = "/etc/tarvio/tarvio.conf";

// Makes clock.tbx, and the keys of vendor and other, which have no password.
class SignedPackages : public WithoutPackages {
 protected:
  SignedPackages() {
    for (const char* name : {"vendor", "other"}) {
      EXPECT_EQ(run_tarvio({"keygen", key(name), "--no-password"}).status, 0);
    }
    std::filesystem::create_directories(kKeys);
    pack("1.0");
  }

  static constexpr char kSignAgain[] =
      "; sign it with 'tarvio sign', or with the trusted comment 'package:NAME version:VERSION'";

  static constexpr char kVendorsOnly[] =
      "; get the package from its vendor, and trust the key only if it is the vendor's";

  // With another version, and further lines in the control file.
  void pack(const std::string& version, const std::string& further = "") const {
    sample_.write("control", "Package: clock\nVersion: " + version +
                                 "\nArchitecture: all\nMaintainer: Halvern Corporation\n" +
                                 further);
    EXPECT_EQ(run_tarvio({"pack", sample_.path(), "-o", file()}).status, 0);
  }
  // As somebody does who has no key.
  void pack_below_signature(const std::string& version) const {
    const std::string kept = read_file(signature());
    pack(version);
    write_file(signature(), kept);
  }
  void sign(const std::string& name = "vendor") const {
    const Ran run = run_tarvio({"sign", file(), "--key", key(name) + ".key"});
    EXPECT_EQ(run.status, 0) << run.errors;
  }
  // With arguments of minisign, beside the files.
  void minisign(const std::string& arguments) const {
    shell(sample_.beside(""), "minisign " + arguments + " >/dev/null");
  }
  // From now on the device trusts the key.
  void trust(const std::string& name = "vendor") const {
    std::filesystem::copy_file(key(name) + ".pub", std::string(kKeys) + "/" + name + ".pub");
  }
  static void set_policy(const std::string& text) { write_file(kPolicy, text); }

  // The paths of keys have an ending.
  std::string key(const std::string& name) const { return sample_.beside(name); }
  std::string id_of(const std::string& name) const {
    const std::string text = read_file(key(name) + ".pub");
    return text.substr(text.find('\n') - 16, 16);
  }
  std::string file() const { return sample_.beside("clock.tbx"); }
  std::string signature() const { return file() + ".minisig"; }
  std::filesystem::path beside(std::string_view name) const { return sample_.beside(name); }
  const SampleDirectory& sample() const { return sample_; }

 private:
  const SampleDirectory sample_;
};

}  // namespace tarvio_test

#endif
