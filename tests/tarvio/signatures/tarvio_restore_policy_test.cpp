// What tarvio restore demands of image packages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "signed_packages.h"
#include "support/flash/flash_client.h"
#include "support/programs/old_kernel.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

// A signed image of the boot loader, with a version, and a device without it.
class ClientRestorePolicy : public FlashClient {
 protected:
  ClientRestorePolicy() {
    fs::create_directories(kKeys);
    keep("boot", "/dev/mtd1", 0, 0x40000);
    EXPECT_EQ(back_up({"bootloader"}).status, 0);
    set_version("2.0");
    EXPECT_EQ(run({"keygen", key_, "--no-password"}).status, 0);
    sign();
    fs::copy_file(key_ + ".pub", std::string(kKeys) + "/vendor.pub");
    write_file(kPolicy, "require_signature: restore\n");
    wipe("/dev/mtd1");
  }

  void set_version(const std::string& version) const {
    write_file("control", "Package: image\nVersion: " + version + "\n");
    write_file("tqcontrol",
               "TqPackageCategory: Image\nTqPackageSubCategory: Image_Other\n"
               "TqDataTarget: bootloader\n");
    directory_.shell(
        "tar czf control.tar.gz ./control ./tqcontrol && ar r image.tbx control.tar.gz 2>&1 && "
        "rm control tqcontrol control.tar.gz");
  }
  void sign() const { EXPECT_EQ(run({"sign", "image.tbx", "--key", key_ + ".key"}).status, 0); }
  void expect_restored(const std::vector<std::string>& arguments = {}) const {
    const FlashRun ran = restore(arguments);
    EXPECT_EQ(ran.status, 0) << ran.errors;
    expect_holds("/dev/mtd1", 0, "boot");
    expect_only({"image.tbx", "image.tbx.minisig"});
  }
  // Nothing was touched.
  void expect_refused(const std::string& why, int status = 6) const {
    const std::vector<std::string> before = directory_.names();
    const FlashRun ran = restore({"--force"});
    EXPECT_EQ(ran.status, status);
    EXPECT_THAT(ran.errors, HasSubstr("tarvio: cannot restore 'image.tbx': "));
    EXPECT_THAT(ran.errors, HasSubstr(why));
    EXPECT_THAT(ran.errors, HasSubstr("; nothing was written"));
    EXPECT_TRUE(is_erased("/dev/mtd1"));
    expect_only(before);
  }
  // As the device says which version it has.
  static void install_system(const std::string& version) {
    fs::create_directories("/mnt/root/etc");
    fs::create_directories(kInformation);
    write_file("/mnt/root/etc/systemversion", "system\n");
    write_file(kInformation + "/system.control", "Package: system\nVersion: " + version + "\n");
  }

  static inline const std::string kInformation = "/mnt/root/usr/lib/opkg/info";

 private:
  const TempDir keys_;
  const std::string key_ = keys_ / "vendor";
};

TEST_F(ClientRestorePolicy, AcceptsWhatIsSigned) { expect_restored(); }

TEST_F(ClientRestorePolicy, DemandsNothingOfAnInstallationsPolicy) {
  write_file(kPolicy, "require_signature: install\n");
  fs::remove("image.tbx.minisig");
  const FlashRun ran = restore();
  EXPECT_EQ(ran.status, 0) << ran.errors;
}

TEST_F(ClientRestorePolicy, RefusesWhatIsNotSigned) {
  fs::remove("image.tbx.minisig");
  expect_refused("its signature 'image.tbx.minisig' does not exist");
  write_file(kPolicy, "require_signature: all\n");
  expect_refused("its signature 'image.tbx.minisig' does not exist");
}

TEST_F(ClientRestorePolicy, RefusesWhatWasChanged) {
  directory_.shell("printf X | dd of=image.tbx conv=notrunc bs=1 seek=5000 status=none");
  expect_refused("its signature 'image.tbx.minisig' does not match the file");
  write_file(kPolicy, "");
  expect_refused("its signature 'image.tbx.minisig' does not match the file");
}

// The first tool that reads the package puts another one in its place, as somebody else could: an
// isolated tool cannot.
TEST_F(ClientRestorePolicy, UsesWhatItHasChecked) {
  const Tool ar("ar",
                "printf evil | dd of=image.tbx conv=notrunc bs=1 seek=5000 status=none\n"
                "PATH=${PATH#*:}\nexec ar \"$@\"");
  const FlashRun ran = run({"restore", "image.tbx", "--yes"}, become_old);
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_NE(ar.runs(), "");
  expect_holds("/dev/mtd1", 0, "boot");
}

TEST_F(ClientRestorePolicy, KeepsNoCopyWhereOthersCanReplaceIt) {
  const TempDir open;
  fs::permissions(open.path(), fs::perms(0777));
  const FlashRun ran = restore({"--workdir", open.path()});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("cannot keep a private copy in '" + open.path().string() +
                                    "': others can rename files there"));
  EXPECT_THAT(ran.errors,
              HasSubstr("; name another directory with --workdir; nothing was written"));
  EXPECT_TRUE(is_erased("/dev/mtd1"));
}

TEST_F(ClientRestorePolicy, DoesNotGoBackToAnOlderVersionUnlessThatIsAllowed) {
  write_file(kPolicy, "require_signature: all\nallow_downgrade: no\n");
  install_system("2.1");
  expect_refused(
      "its version 2.0 is older than the installed 2.1; set allow_downgrade: yes in "
      "/etc/tarvio/tarvio.conf to go back");
  install_system("2.0");
  expect_restored();
}

// As a backup of the device itself is.
TEST_F(ClientRestorePolicy, DoesNotTakeAnImageWithoutAVersionForANewerOne) {
  write_file(kPolicy, "allow_downgrade: no\n");
  install_system("2.1");
  set_version("");
  sign();
  expect_refused(
      "it has no version, so allow_downgrade: no refuses it; set allow_downgrade: yes in "
      "/etc/tarvio/tarvio.conf to accept it; nothing was written (1)");
  write_file(kPolicy, "allow_downgrade: yes\n");
  expect_restored();
}

TEST_F(ClientRestorePolicy, CannotRuleOutAnOlderVersionOfAnUnknownOne) {
  write_file(kPolicy, "allow_downgrade: no\n");
  expect_refused(
      "the version of the installed system is not known: '/mnt/root/etc/systemversion' names no "
      "package",
      1);
  install_system("1.0");
  fs::remove(kInformation + "/system.control");
  expect_refused("its package system is not installed", 1);
}

}  // namespace
}  // namespace tarvio_test
