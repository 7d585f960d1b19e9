// tarvio doctor: the keys of signatures and the policy.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "doctor.h"

namespace tarvio_test {
namespace {

class DoctorOfSignatures : public Doctor {
 protected:
  DoctorOfSignatures() { std::filesystem::create_directories(kKeys); }

  static void add_key(const std::string& name, const std::string& id) {
    EXPECT_EQ(run_tarvio({"keygen", "/run/tmp/" + name, "--no-password"}).status, 0);
    const std::string text = read_file("/run/tmp/" + name + ".pub");
    write_file(kKeys + ("/" + name + ".pub"), text);
    if (!id.empty()) write_file(id, text.substr(text.find('\n') - 16, 16));
  }

  static constexpr char kKeys[] = "/etc/tarvio/keys";
  static constexpr char kPolicy[] = "/etc/tarvio/tarvio.conf";
};

TEST_F(DoctorOfSignatures, ShowsThePolicyAndCountsTheKeys) {
  std::filesystem::create_directory(std::string(kKeys) + "/revoked");
  add_key("one", "/run/tmp/id");
  add_key("two", "");
  write_file(std::string(kKeys) + "/revoked/" + read_file("/run/tmp/id"), "");
  write_file(kPolicy, "require_signature: all\nallow_downgrade: yes\n");
  const Json rows = look();
  EXPECT_EQ(row(rows, "package policy"),
            expected("package policy", "ok", "require_signature is all, allow_downgrade is yes"));
  EXPECT_EQ(row(rows, "keys"), expected("keys", "ok", "1 valid, 1 revoked, in /etc/tarvio/keys"));
}

TEST_F(DoctorOfSignatures, WarnsOfASystemWithoutAVersionWhereDowngradesAreOff) {
  const MountedMemory installed("/mnt/root");
  write_kernel_command_line("root=/dev/mtdblock5\n");
  write_file(kPolicy, "allow_downgrade: no\n");
  const std::string shown = "require_signature is no, allow_downgrade is no";
  EXPECT_EQ(
      row_of("package policy"),
      expected("package policy", "warning",
               shown + ", so restore accepts no image: the version of the installed system is "
                       "not known: '/mnt/root/etc/systemversion' names no package",
               "write the name of the installed system's package into "
               "/mnt/root/etc/systemversion"));
  std::filesystem::create_directories("/mnt/root/etc");
  std::filesystem::create_directories("/mnt/root/usr/lib/opkg/info");
  write_file("/mnt/root/etc/systemversion", "system\n");
  write_file("/mnt/root/usr/lib/opkg/info/system.control", "Package: system\nVersion: 1\n");
  EXPECT_EQ(row_of("package policy"), expected("package policy", "ok", shown));
  write_kernel_command_line("root=/dev/mtdblock4\n");
}

TEST_F(DoctorOfSignatures, MissesAKeyWhereSignaturesAreRequired) {
  write_file(kPolicy, "require_signature: install\n");
  EXPECT_EQ(
      row_of("keys"),
      expected("keys", "failed", "0 valid, 0 revoked, in /etc/tarvio/keys, so install accepts none",
               "put the public key of your packages there"));
  write_file(kPolicy, "require_signature: all\n");
  EXPECT_EQ(row_of("keys")["found"],
            "0 valid, 0 revoked, in /etc/tarvio/keys, so no package is accepted");
}

TEST_F(DoctorOfSignatures, FindsWhatIsNotUsed) {
  write_file(std::string(kKeys) + "/damaged.pub", "");
  Json rows = look();
  EXPECT_EQ(rows[17], expected("keys", "warning",
                               "not used: public key '/etc/tarvio/keys/damaged.pub' is truncated: "
                               "line 1 is missing",
                               "replace the file, or remove it"));
  add_key("damaged", "");
  std::filesystem::permissions(std::string(kKeys) + "/damaged.pub", std::filesystem::perms(0666));
  rows = look();
  EXPECT_EQ(rows[17], expected("keys", "warning",
                               "not used: cannot trust '/etc/tarvio/keys/damaged.pub': it can be "
                               "changed by others (mode 0666)",
                               "run chmod go-w on it"));
  std::filesystem::permissions(kKeys, std::filesystem::perms(0777));
  write_file(kPolicy, "require_signature: perhaps\n");
  rows = look();
  EXPECT_EQ(row(rows, "package policy")["status"], "failed");
  EXPECT_EQ(row(rows, "package policy")["found"],
            "cannot be checked: /etc/tarvio/tarvio.conf:1: unknown require_signature: write no, "
            "install, restore or all");
  EXPECT_EQ(row(rows, "keys")["found"],
            "cannot be checked: cannot trust '/etc/tarvio/keys': it can be changed by others (mode "
            "0777); run chmod go-w on it");
  std::filesystem::permissions("/etc/tarvio", std::filesystem::perms(0777));
  std::filesystem::remove(kPolicy);
  EXPECT_EQ(row_of("package policy"),
            expected("package policy", "failed",
                     "cannot be checked: cannot trust '/etc/tarvio': it can be changed by others "
                     "(mode 0777); run chmod go-w on it",
                     "fix this, and run 'tarvio doctor' again"));
  std::filesystem::permissions("/etc/tarvio", std::filesystem::perms(0755));
}

}  // namespace
}  // namespace tarvio_test
