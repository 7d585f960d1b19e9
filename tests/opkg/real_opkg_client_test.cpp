// tarvio install, remove, list and files with real releases of opkg: what works.
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "opkg/real_opkg.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

using RealOpkgClient = RealOpkg;

INSTANTIATE_TEST_SUITE_P(Releases, RealOpkgClient, testing::Values(kOpkg018, kOpkg044));

TEST_P(RealOpkgClient, InstallsListsAndRemoves) {
  const Ran installed = install(package("app", "1.0"));
  EXPECT_EQ(installed.status, 0);
  EXPECT_EQ(installed.output, "installed app 1.0\n");
  EXPECT_EQ(installed.errors, "");
  EXPECT_EQ(read_file("/opt/app/1.0"), "1.0\n");
  EXPECT_EQ(run_tarvio({"list"}).output,
            "NAME  VERSION  CATEGORY     SUBCATEGORY  MAINTAINER\n"
            "app   1.0      application  native       Halvern\n");
  const Ran files = run_tarvio({"files", "app"});
  EXPECT_EQ(files.status, 0);
  EXPECT_THAT(files.output, AllOf(HasSubstr("/opt/app/1.0\n"), HasSubstr("/opt/app/common\n")));

  const Ran removed = run_tarvio({"remove", "app"});
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(removed.output, "removed app\n");
  EXPECT_EQ(removed.errors, "");
  EXPECT_FALSE(has_trace("app"));
  const Ran again = run_tarvio({"remove", "app"});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.errors, EndsWith("cannot remove 'app': it is not installed (65)\n"));
  EXPECT_EQ(run_tarvio({"files", "app"}).status, 1);
}

TEST_P(RealOpkgClient, LeavesTheSameVersionAsItIsUnlessForced) {
  const std::string app = package("app", "1.0");
  ASSERT_EQ(install(app).status, 0);
  const auto before = fs::last_write_time("/opt/app");
  const Ran same = install(app);
  EXPECT_EQ(same.status, 0);
  EXPECT_EQ(same.output, "app 1.0 is already installed; nothing changed\n");
  EXPECT_EQ(same.errors, "");
  EXPECT_EQ(fs::last_write_time("/opt/app"), before);
  fs::remove("/opt/app/common");
  const Ran forced = install_by_force(app);
  EXPECT_EQ(forced.status, 0) << forced.errors;
  EXPECT_THAT(forced.output, StartsWith("installed app 1.0"));
  EXPECT_EQ(read_file("/opt/app/common"), "app\n");
}

TEST_P(RealOpkgClient, UpgradesAndRemovesObsoleteFiles) {
  ASSERT_EQ(install(package("app", "1.0")).status, 0);
  const Ran upgrade = install(package("app", "2.0"));
  EXPECT_EQ(upgrade.status, 0) << upgrade.errors;
  EXPECT_THAT(upgrade.output, StartsWith("installed app 2.0"));
  EXPECT_EQ(installed_version("app"), "2.0");
  EXPECT_TRUE(fs::exists("/opt/app/2.0"));
  EXPECT_FALSE(fs::exists("/opt/app/1.0"));
}

TEST_P(RealOpkgClient, DowngradesByForceOnly) {
  ASSERT_EQ(install(package("app", "2.0")).status, 0);
  const std::string older = package("app", "1.0");
  const Ran refused = install(older);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.errors, HasSubstr("app 2.0 is installed as before"));
  EXPECT_TRUE(fs::exists("/opt/app/2.0"));
  const Ran forced = install_by_force(older);
  EXPECT_EQ(forced.status, 0) << forced.errors;
  EXPECT_THAT(forced.output, StartsWith("installed app 1.0"));
  EXPECT_EQ(installed_version("app"), "1.0");
  EXPECT_TRUE(fs::exists("/opt/app/1.0"));
}

TEST_P(RealOpkgClient, InstallsDespiteAMissingDependencyByForceOnly) {
  const std::string app = package("app", "1.0", "Depends: nowhere\n");
  const Ran refused = install(app);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output, "");
  EXPECT_THAT(refused.errors,
              AllOf(HasSubstr("Cannot satisfy"), HasSubstr("nowhere"),
                    EndsWith("': Tarvio package dependency error, and app is not installed "
                             "(10302)\n")));
  EXPECT_EQ(installed_version("app"), "");
  EXPECT_EQ(install_by_force(app).status, 0);
  EXPECT_EQ(installed_version("app"), "1.0");
}

TEST_P(RealOpkgClient, InstallsAConflictingPackageByForceOnly) {
  ASSERT_EQ(install(package("app", "1.0")).status, 0);
  const std::string rival = package("rival", "1.0", "Conflicts: app\n");
  const Ran refused = install(rival);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.errors, EndsWith("dependency error, and rival is not installed (10302)\n"));
  EXPECT_EQ(installed_version("rival"), "");
  EXPECT_EQ(install_by_force(rival).status, 0);
  EXPECT_EQ(installed_version("rival"), "1.0");
}

TEST_P(RealOpkgClient, TakesOverAFileOfAnotherPackageByForceOnly) {
  ASSERT_EQ(install(package("app", "1.0")).status, 0);
  const std::string other = clashing_package();
  const Ran refused = install(other);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.errors, EndsWith("': opkg cannot install it, and other is not installed "
                                       "(10301)\n"));
  EXPECT_EQ(read_file("/opt/app/common"), "app\n");
  EXPECT_EQ(install_by_force(other).status, 0);
  EXPECT_EQ(read_file("/opt/app/common"), "of other\n");
}

TEST_P(RealOpkgClient, RemovesWhatOthersNeedByForceOnly) {
  ASSERT_EQ(install(package("base", "1.0")).status, 0);
  ASSERT_EQ(install(package("app", "1.0", "Depends: base\n")).status, 0);
  const Ran refused = run_tarvio({"remove", "base"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output, "");
  EXPECT_THAT(refused.errors, AllOf(HasSubstr("is depended upon by packages"),
                                    HasSubstr("base 1.0 is still installed")));
  EXPECT_TRUE(fs::exists("/opt/base/1.0"));
  const Ran forced = run_tarvio({"remove", "--force", "base"});
  EXPECT_EQ(forced.status, 0);
  EXPECT_EQ(forced.output, "removed base\n");
  EXPECT_FALSE(fs::exists("/opt/base"));
  EXPECT_TRUE(fs::exists("/opt/app/1.0"));
}

// From a feed, opkg installs what a package needs without asking for a signature.
TEST_P(RealOpkgClient, TakesNothingFromFeedsWhereASignatureIsRequired) {
  fs::create_directories("/etc/tarvio/keys");
  ASSERT_EQ(run_tarvio({"keygen", "/etc/tarvio/keys/vendor", "--no-password"}).status, 0);
  const std::string lib = package("lib", "1.0");
  offer({lib, package("extra", "1.0"), package("bait", "1.0")});
  // What opkg would do.
  const Ran fetching = install(package("first", "1.0", "Depends: bait\n"));
  EXPECT_EQ(fetching.status, 0) << fetching.errors;
  ASSERT_EQ(installed_version("bait"), "1.0");

  const std::string app = package("app", "1.0", "Depends: lib (>= 1.0)\nRecommends: extra\n");
  ASSERT_EQ(run_tarvio({"sign", app, lib, "--key", "/etc/tarvio/keys/vendor.key"}).status, 0);
  write_file("/etc/tarvio/tarvio.conf", "require_signature: install\n");
  for (const Ran& refused : {install(app), install_by_force(app)}) {
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.errors, HasSubstr("it needs 'lib (>= 1.0)', which is not installed"));
  }
  EXPECT_FALSE(has_trace("app") || has_trace("lib") || has_trace("extra"));
  ASSERT_EQ(install(lib).status, 0);
  const Ran installed = install(app);
  EXPECT_EQ(installed.status, 0) << installed.errors;
  EXPECT_EQ(installed_version("app"), "1.0");
  EXPECT_FALSE(has_trace("extra"));
}

TEST_P(RealOpkgClient, WorksInTheOfflineRoot) {
  write_kernel_command_line("root=/dev/mtdblock5\n");
  const Ran installed = install(package("app", "1.0"));
  EXPECT_EQ(installed.status, 0) << installed.errors;
  EXPECT_EQ(installed_version("app", "/mnt/root"), "1.0");
  EXPECT_TRUE(fs::exists("/mnt/root/opt/app/1.0"));
  EXPECT_FALSE(has_trace("app"));
  const json listed = json::parse(run_tarvio({"list", "--json"}).output);
  EXPECT_EQ(listed[0]["start_file"], "/mnt/root/usr/lib/opkg/info/app.tqstartapp");
  EXPECT_THAT(run_tarvio({"files", "app"}).output, HasSubstr("/mnt/root/opt/app/1.0\n"));
  EXPECT_EQ(run_tarvio({"remove", "app"}).output, "removed app\n");
  EXPECT_FALSE(fs::exists("/mnt/root/opt/app"));
}

TEST_P(RealOpkgClient, IsJsonForScripts) {
  const json results = json::parse(run_tarvio({"install", "--json", package("app", "1.0"),
                                               package("next", "1.0", "Depends: x\n")})
                                       .output);
  ASSERT_EQ(results.size(), 2U);
  EXPECT_EQ(results[0]["code"], 0);
  EXPECT_EQ(results[0]["installed_version"], "1.0");
  EXPECT_NE(results[1]["code"], 0);
  EXPECT_EQ(results[1]["installed_version"], nullptr);
  EXPECT_FALSE(results[1]["opkg_lines"].empty());
}

TEST_P(RealOpkgClient, InstallsWhatPackMakes) {
  const SampleDirectory directory;
  const std::string file = directory.beside("clock.tbx");
  ASSERT_EQ(run_tarvio({"pack", directory.path(), "-o", file}).status, 0);
  EXPECT_EQ(run_tarvio({"check", file}).status, 0);
  EXPECT_EQ(install(file).status, 0);
  EXPECT_EQ(read_file("/opt/clock/face"), "12\n");
}

}  // namespace
}  // namespace tarvio_test
