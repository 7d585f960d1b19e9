// What tarvio install demands of packages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "signed_packages.h"
#include "support/packages/package_listing.h"
#include "support/packages/stand_in_opkg.h"
#include "support/programs/old_kernel.h"
#include "support/users.h"
#include "support/work_directory.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

class ClientInstallPolicy : public SignedPackages {
 protected:
  ClientInstallPolicy() {
    use_stand_in_opkg();
    write_kernel_command_line("root=/dev/mtdblock4\n");
  }
  // Nothing is left of any run.
  ~ClientInstallPolicy() override { EXPECT_EQ(temporary_.entries(), std::vector<std::string>()); }

  Ran install(
      std::vector<std::string> options = {}, void (*before)() = [] {}) const {
    options.insert(options.begin(), {"install", file()});
    return run_tarvio(options, before);
  }
  void expect_installed(
      const std::string& version = "1.0", void (*before)() = [] {}) const {
    const Ran run = install({}, before);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(installed_version(), version);
  }
  // Nothing was touched.
  void expect_refused(const std::string& why, int status = 6) const {
    const std::string before = installed_version();
    const Ran run = install({"--force"});
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(run.output, "");
    EXPECT_THAT(run.errors, HasSubstr("tarvio: cannot install '" + file() + "': "));
    EXPECT_THAT(run.errors, HasSubstr(why));
    EXPECT_EQ(installed_version(), before);
    if (before.empty()) {
      EXPECT_FALSE(fs::exists("/opt/clock"));
      EXPECT_TRUE(fs::is_empty(kInformation));
    }
  }
  static std::string installed_version() {
    const std::string control = std::string(kInformation) + "/clock.control";
    if (!fs::exists(control)) return "";
    const std::string text = read_file(control);
    const size_t at = text.find("Version: ") + 9;
    return text.substr(at, text.find('\n', at) - at);
  }
  static std::string face() { return read_file("/opt/clock/face"); }

  const PrivateTemporaryDirectory temporary_;
};

TEST_F(ClientInstallPolicy, DemandsNothingUnlessItIsSet) {
  expect_installed();
  set_policy("# nothing\n");
  expect_installed();
  set_policy("require_signature: restore\n");
  expect_installed();
  set_policy(read_file(TARVIO_COMPLETIONS "/../../tarvio.conf"));
  expect_installed();
}

TEST_F(ClientInstallPolicy, RefusesWhatIsNotSigned) {
  trust();
  for (const char* scope : {"install", "all"}) {
    set_policy(std::string("require_signature: ") + scope + "\n");
    expect_refused("its signature '" + signature() +
                   "' does not exist; get it from where the package comes from (2)");
  }
  sign("other");
  expect_refused("was made with unknown key " + id_of("other"));
  sign();
  expect_installed();
}

TEST_F(ClientInstallPolicy, RefusesWhatIsNotSignedIfTheCallerSaysSo) {
  trust();
  for (const char* policy : {"", "require_signature: no\n", "require_signature: restore\n"}) {
    set_policy(policy);
    const Ran run = install({"--force", "--require-signature"});
    EXPECT_EQ(run.status, 6);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "tarvio: cannot install '" + file() + "': its signature '" + signature() +
                              "' does not exist; get it from where the package comes from (2)\n");
    EXPECT_EQ(installed_version(), "");
  }
  sign("other");
  EXPECT_EQ(install({"--require-signature"}).status, 6);
  sign();
  const Ran run = install({"--require-signature"});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(installed_version(), "1.0");
}

TEST_F(ClientInstallPolicy, RefusesEveryPackageWithoutAKey) {
  set_policy("require_signature: all\n");
  sign();
  expect_refused("was made with unknown key " + id_of("vendor") +
                 "; get the package from its vendor");
}

TEST_F(ClientInstallPolicy, RefusesAKeyThatIsRevoked) {
  set_policy("require_signature: install\n");
  trust();
  sign();
  fs::create_directory(kRevoked);
  write_file(kRevoked + ("/" + id_of("vendor")), "");
  expect_refused("was made with revoked key " + id_of("vendor"));
}

TEST_F(ClientInstallPolicy, RefusesAWrongSignatureAlthoughNoneIsRequired) {
  sign();
  pack_below_signature("2.0");
  trust();
  expect_refused("does not match the file");
  write_file(signature(), "");
  expect_refused("is empty");
  fs::remove(signature());
  expect_installed("2.0");
}

TEST_F(ClientInstallPolicy, DoesNotLookAtSignaturesWithoutAKeyAndAPolicy) {
  write_file(signature(), "damaged");
  expect_installed();
}

TEST_F(ClientInstallPolicy, RefusesTheSignatureOfAnotherPackage) {
  set_policy("require_signature: install\n");
  trust();
  minisign("-S -W -s vendor.key -m clock.tbx -t 'package:radio version:1.0'");
  expect_refused("its signature is for radio 1.0, but the package is clock 1.0");
}

// Without a signature of their own, opkg would fetch them from a feed.
TEST_F(ClientInstallPolicy, TakesNoDependenciesFromFeeds) {
  pack("1.0", "Depends: lib (>= 2.0)\n");
  sign();
  trust();
  const auto expect_missing = [&] {
    expect_refused(
        "it needs 'lib (>= 2.0)', which is not installed and would come from a feed without a "
        "signature; install that first (10302)",
        1);
  };
  set_policy("require_signature: install\n");
  expect_missing();
  fs::create_directories(kInformation);
  const std::string lib = std::string(kInformation) + "/lib.control";
  write_file(lib, "Package: lib\nVersion: 1.9\n");
  EXPECT_EQ(install({"--force"}).status, 1);
  write_file(lib, "Package: lib\nVersion: 2.0\n");
  const Tool opkg("opkg", "PATH=${PATH#*:}\nexec opkg \"$@\"");
  expect_installed();
  EXPECT_THAT(opkg.runs(), HasSubstr("--nodeps install "));
}

TEST_F(ClientInstallPolicy, LeavesDependenciesToOpkgWhereNothingIsRequired) {
  set_policy("require_signature: restore\n");
  pack("1.0", "Depends: lib\n");
  const Tool opkg("opkg", "PATH=${PATH#*:}\nexec opkg \"$@\"");
  EXPECT_THAT(install().errors, HasSubstr("Cannot satisfy"));
  EXPECT_EQ(install({"--force"}).status, 0);
  EXPECT_THAT(opkg.runs(), Not(HasSubstr("--nodeps")));
}

// The first tool that reads the package puts another one in its place, as somebody else could: an
// isolated tool cannot.
TEST_F(ClientInstallPolicy, UsesWhatItHasChecked) {
  set_policy("require_signature: install\n");
  trust();
  sign();
  sample().write("data/opt/clock/face", "evil\n");
  ASSERT_EQ(run_tarvio({"pack", sample().path(), "-o", beside("evil.tbx")}).status, 0);
  {
    const Tool ar("ar", "cat " + beside("evil.tbx").string() + " >" + file() +
                            "\nPATH=${PATH#*:}\nexec ar \"$@\"");
    expect_installed("1.0", become_old);
    EXPECT_NE(ar.runs(), "");
  }
  EXPECT_EQ(read_file(file()), read_file(beside("evil.tbx")));
  EXPECT_EQ(face(), "12\n");
  expect_refused("does not match the file");
}

TEST_F(ClientInstallPolicy, SaysHowMuchSpaceTheCopyNeeds) {
  set_policy("require_signature: install\n");
  trust();
  write_file(sample() / "data/opt/clock/face", std::string());
  shell(sample().path(), "head -c 300000 /dev/urandom >data/opt/clock/face");
  pack("1.0");
  sign();
  const TempDir small;
  ASSERT_EQ(::mount("small", small.path().c_str(), "tmpfs", 0, "size=128k,mode=0700"), 0);
  const Ran run =
      run_tarvio({"install", file()}, [&] { ::setenv("TMPDIR", small.path().c_str(), 1); });
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("not enough space in '" + small.path().string() +
                                    "' for a private copy: 293"));
  EXPECT_THAT(run.errors, HasSubstr(" KiB needed, 128.0 KiB free (28)"));
  EXPECT_TRUE(fs::is_empty(small.path()));
  ::umount(small.path().c_str());
  EXPECT_EQ(installed_version(), "");
}

TEST_F(ClientInstallPolicy, KeepsNoCopyWhereOthersCanReplaceIt) {
  set_policy("require_signature: install\n");
  trust();
  sign();
  const TempDir open;
  const auto install_in = [&](const fs::path& place) {
    return run_tarvio({"install", file()}, [&] { ::setenv("TMPDIR", place.c_str(), 1); });
  };
  fs::permissions(open.path(), fs::perms(0777));
  fs::create_directory(open / "own");
  for (const fs::path& place : {open.path(), open / "own"}) {
    const Ran run = install_in(place);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("cannot keep a private copy in '" + place.string() +
                                      "': others can rename files " +
                                      (place == open.path() ? std::string("there")
                                                            : "in '" + open.path().string() + "'") +
                                      "; set TMPDIR to another directory (1)"));
  }
  EXPECT_EQ(installed_version(), "");
  // A link that others can change counts once, at the beginning.
  const TempDir closed;
  fs::create_directory_symlink(closed.path(), open / "link");
  EXPECT_EQ(install_in(open / "link").status, 0);
  fs::permissions(open.path(), fs::perms(01777));
  EXPECT_EQ(install_in(open.path()).status, 0);
  if (!has_other_users()) return;
  ASSERT_EQ(::chown(open.path().c_str(), 1000, 1000), 0);
  EXPECT_EQ(install_in(open.path()).status, 1);
}

// A tool does here what another user could do in a directory that is open to all.
TEST_F(ClientInstallPolicy, LeavesWhatOthersPutInPlaceOfTheWorkDirectory) {
  if (!has_other_users()) GTEST_SKIP() << "needs another user";
  const TempDir open;
  fs::create_directories(open / "theirs/precious");
  ASSERT_EQ(::chown((open / "theirs").c_str(), 1000, 1000), 0);
  const Tool ar("ar", "cd / && mv \"$OLDPWD\" " + (open / "away").string() + " && mv " +
                          (open / "theirs").string() + " \"$OLDPWD\"; exit 1");
  const Ran run = run_tarvio({"install", file()}, [&] {
    ::setenv("TMPDIR", open.path().c_str(), 1);
    become_old();
  });
  EXPECT_EQ(run.status, 1);
  const std::vector<std::string> names = names_in(open.path());
  ASSERT_EQ(names.size(), 2U);
  EXPECT_EQ(names[0], "away");
  EXPECT_TRUE(fs::exists(open / names[1] / "precious"));
}

TEST_F(ClientInstallPolicy, DoesNotGoBackToAnOlderVersionUnlessThatIsAllowed) {
  set_policy("allow_downgrade: no\n");
  pack("2.0");
  expect_installed("2.0");
  pack("1.10");
  expect_refused(
      "its version 1.10 is older than the installed 2.0; set allow_downgrade: yes in "
      "/etc/tarvio/tarvio.conf to go back (1)");
  pack("2.0~rc1");
  expect_refused("its version 2.0~rc1 is older than the installed 2.0");
  pack("2.0");
  EXPECT_EQ(install({"--force"}).status, 0);
  pack("2.0.1");
  expect_installed("2.0.1");
  set_policy("allow_downgrade: yes\n");
  pack("1.10");
  EXPECT_EQ(install({"--force"}).status, 0);
  EXPECT_EQ(installed_version(), "1.10");
}

TEST_F(ClientInstallPolicy, IsNotGuessedFromAFileThatIsWrong) {
  const struct {
    const char* text;
    const char* why;
  } rows[] = {
      {"require_signature: sometimes\n",
       "/etc/tarvio/tarvio.conf:1: unknown require_signature: write no, install, restore or all"},
      {"\nallow_downgrade: maybe\n",
       "/etc/tarvio/tarvio.conf:2: unknown allow_downgrade: write yes or no"},
      {"require_signatures: all\n",
       "/etc/tarvio/tarvio.conf:1: unknown key: use require_signature or allow_downgrade"},
      {"require_signature all\n", "/etc/tarvio/tarvio.conf:1: no colon in the line"},
      {"do not require_signature: no\n",
       "/etc/tarvio/tarvio.conf:1: key of several words: write one word"},
      {"require_signature: no all\n",
       "/etc/tarvio/tarvio.conf:1: value of several words: write one word"},
      {"require_signature:\n",
       "/etc/tarvio/tarvio.conf:1: unknown require_signature: write no, install"},
  };
  for (const auto& [text, why] : rows) {
    set_policy(text);
    expect_refused(why, 1);
  }
}

TEST_F(ClientInstallPolicy, IsNotTakenFromAFileThatOthersCanChange) {
  set_policy("require_signature: no\n");
  fs::permissions(kPolicy, fs::perms(0666));
  expect_refused(
      "cannot trust '/etc/tarvio/tarvio.conf': it can be changed by others (mode 0666); "
      "run chmod go-w on it",
      1);
  fs::permissions(kPolicy, fs::perms(0644));
  fs::permissions("/etc/tarvio", fs::perms(0777));
  expect_refused("cannot trust '/etc/tarvio': it can be changed by others (mode 0777)", 1);
  // Others could also have taken it away, and the keys.
  fs::rename(kPolicy, "/etc/tarvio/elsewhere");
  expect_refused("cannot trust '/etc/tarvio': it can be changed by others (mode 0777)", 1);
  fs::remove_all(kKeys);
  expect_refused("cannot trust '/etc/tarvio': it can be changed by others (mode 0777)", 1);
  fs::permissions("/etc/tarvio", fs::perms(0755));
  fs::create_symlink("/etc/tarvio/elsewhere", kPolicy);
  expect_refused("cannot trust '/etc/tarvio/tarvio.conf': it is not a regular file", 1);
}

}  // namespace
}  // namespace tarvio_test
