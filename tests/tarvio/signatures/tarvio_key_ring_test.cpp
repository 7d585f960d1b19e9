// The keys that a device trusts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "signed_packages.h"
#include "support/users.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

class ClientKeyRing : public SignedPackages {
 protected:
  ClientKeyRing() {
    sign();
    trust();
  }
  void expect_trusted() const {
    const Ran run = run_tarvio({"verify", file()});
    EXPECT_EQ(run.status, 0) << run.errors;
  }
  void expect_refused(const std::string& why, int status = 6) const {
    const Ran run = run_tarvio({"verify", file()});
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(run.output, "");
    EXPECT_THAT(run.errors, HasSubstr(why));
  }
  static void open_to(const fs::path& path, fs::perms who) {
    fs::permissions(path, who, fs::perm_options::add);
  }
  static void close_to(const fs::path& path, fs::perms who) {
    fs::permissions(path, who, fs::perm_options::remove);
  }
};

constexpr char kVendor[] = "/etc/tarvio/keys/vendor.pub";

TEST_F(ClientKeyRing, HoldsSeveralKeys) {
  trust("other");
  expect_trusted();
  sign("other");
  expect_trusted();
  // So that keys can be changed: the old one goes when all packages have the new signature.
  fs::remove(kVendor);
  expect_trusted();
  sign();
  expect_refused("was made with unknown key " + id_of("vendor"));
}

TEST_F(ClientKeyRing, LooksAtKeysAlone) {
  write_file(std::string(kKeys) + "/README", "not a key");
  fs::rename(kVendor, std::string(kKeys) + "/vendor");
  expect_refused("was made with unknown key " + id_of("vendor") + kVendorsOnly + " (126)");
}

TEST_F(ClientKeyRing, HoldsNoKeyWithoutTheDirectory) {
  fs::remove_all(kKeys);
  expect_refused("was made with unknown key");
}

TEST_F(ClientKeyRing, KnowsRevokedKeysByTheirId) {
  fs::create_directory(kRevoked);
  expect_trusted();
  write_file(kRevoked + ("/" + id_of("other")), "");
  expect_trusted();
  for (const std::string& name : {id_of("vendor"), id_of("vendor") + ".lost-in-2026"}) {
    const std::string path = std::string(kRevoked) + "/" + name;
    write_file(path, "");
    expect_refused("' was made with revoked key " + id_of("vendor") +
                   "; get a package that is signed with another key (128)");
    fs::remove(path);
  }
  std::string small_letters = id_of("vendor");
  for (char& letter : small_letters) letter = static_cast<char>(::tolower(letter));
  write_file(kRevoked + ("/" + small_letters), "");
  expect_refused("was made with revoked key");
}

TEST_F(ClientKeyRing, KnowsRevokedKeysByTheirFiles) {
  fs::create_directory(kRevoked);
  fs::copy_file(kVendor, std::string(kRevoked) + "/vendor.pub");
  expect_refused("was made with revoked key");
  fs::remove(kVendor);
  expect_refused("was made with revoked key");
}

// What it revokes is not known, so nothing is trusted.
TEST_F(ClientKeyRing, TrustsNothingWhenARevocationCannotBeRead) {
  fs::create_directory(kRevoked);
  write_file(std::string(kRevoked) + "/vendor.pub", "damaged");
  expect_refused("cannot find out which key is revoked: public key '" + std::string(kRevoked) +
                     "/vendor.pub' is damaged: line 1 does not begin with 'untrusted comment: '; "
                     "name the file after the id of the key, or remove it\n",
                 1);
  fs::remove(std::string(kRevoked) + "/vendor.pub");
  write_file(std::string(kRevoked) + "/.keep", "");
  expect_trusted();
  open_to(kRevoked, fs::perms::others_write);
  expect_refused("cannot trust '/etc/tarvio/keys/revoked': it can be changed by others", 1);
}

TEST_F(ClientKeyRing, TrustsNoDirectoryThatOthersCanChange) {
  for (const std::string path : {"/etc/tarvio", kKeys}) {
    open_to(path, fs::perms::others_write);
    expect_refused("cannot trust '" + path +
                       "': it can be changed by others (mode 0757); run chmod "
                       "go-w on it\n",
                   1);
    close_to(path, fs::perms::others_write);
  }
  expect_trusted();
  fs::rename(kKeys, "/etc/tarvio/elsewhere");
  fs::create_directory_symlink("/etc/tarvio/elsewhere", kKeys);
  expect_refused("cannot trust '/etc/tarvio/keys': it is not a directory\n", 1);
}

TEST_F(ClientKeyRing, DoesNotUseAFileThatOthersCanChange) {
  const std::string unknown = "was made with unknown key " + id_of("vendor") + kVendorsOnly +
                              " (cannot trust '" + kVendor + "': it ";
  open_to(kVendor, fs::perms::others_write);
  expect_refused(unknown + "can be changed by others (mode 0646); run chmod go-w on it) (126)");
  close_to(kVendor, fs::perms::others_write);
  expect_trusted();
  fs::rename(kVendor, "/etc/tarvio/vendor.pub");
  fs::create_symlink("/etc/tarvio/vendor.pub", kVendor);
  expect_refused(unknown + "is not a regular file) (126)");
}

// Not for its own group either: with an access control list, these bits are those of other users.
TEST_F(ClientKeyRing, DoesNotUseAFileThatAGroupCanChange) {
  open_to(kVendor, fs::perms::group_write);
  expect_refused("can be changed by others (mode 0664)");
  close_to(kVendor, fs::perms::group_write);
  expect_trusted();
  open_to(kKeys, fs::perms::group_write);
  expect_refused("cannot trust '/etc/tarvio/keys': it can be changed by others (mode 0775)", 1);
}

TEST_F(ClientKeyRing, UsesTheOthersBesideADamagedKey) {
  write_file(std::string(kKeys) + "/damaged.pub", "");
  write_file(std::string(kKeys) + "/huge.pub", std::string(100000, 'x'));
  expect_trusted();
  sign("other");
  expect_refused("/damaged.pub' is truncated: line 1 is missing");
  expect_refused("/huge.pub' is too large");
}

TEST_F(ClientKeyRing, IsRootsAlone) {
  if (!has_other_users()) GTEST_SKIP() << "needs another user";
  ASSERT_EQ(::chown(kVendor, 1000, 0), 0);
  expect_refused("it is owned by user 1000; make root its owner");
  ASSERT_EQ(::chown(kVendor, 0, 1000), 0);
  expect_trusted();
  open_to(kVendor, fs::perms::group_write);
  expect_refused("can be changed by others (mode 0664)");
  close_to(kVendor, fs::perms::group_write);
  ASSERT_EQ(::chown(kKeys, 1000, 0), 0);
  expect_refused("cannot trust '/etc/tarvio/keys': it is owned by user 1000; make root its owner",
                 1);
}

}  // namespace
}  // namespace tarvio_test
