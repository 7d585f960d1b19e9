// The package calls of the library with real releases of opkg. It judges what opkg prints.
#include <sys/mount.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "opkg/real_opkg.h"
#include "support/string_list.h"
#include "tarvio/client.h"
#include "tarvio/error.h"
#include "tarvio/opkg.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// From the name of a member of an archive to after the first bytes of its content: the rest of the
// header, and the header of gzip.
constexpr size_t kMemberStart = 60 + 10;

class RealOpkgLibrary : public RealOpkg {
 protected:
  static int install(const std::string& file, int force = 0) {
    return tq_lib_install_pkg(file.c_str(), force);
  }
  static int remove(const char* name, int force = 0) { return tq_lib_remove_pkg(name, force); }
  static Names files(const char* name) {
    uint32_t count = 0;
    char** array = nullptr;
    EXPECT_EQ(tq_lib_files_pkg(name, &count, &array), 0);
    Names names;
    for (uint32_t at = 0; at < count; ++at) {
      names.emplace_back(array[at]);
      std::free(array[at]);
    }
    std::free(array);
    return names;
  }
};

INSTANTIATE_TEST_SUITE_P(Releases, RealOpkgLibrary, testing::Values(kOpkg018, kOpkg044));

TEST_P(RealOpkgLibrary, InstallsListsAndRemoves) {
  const std::string app = package("app", "1.0");
  EXPECT_EQ(install(app), 0);
  EXPECT_FALSE(fs::exists(fs::path(app).replace_extension(".ipk")));
  EXPECT_EQ(Listing(TQ_CATEGORY_APPLICATION).only().start_app, "/usr/lib/opkg/info/app.tqstartapp");
  EXPECT_THAT(files("app"), testing::Contains("/opt/app/1.0"));
  EXPECT_EQ(install(package("app", "2.0")), 0);
  EXPECT_EQ(Listing().only().version, "2.0");
  EXPECT_EQ(remove("app"), 0);
  EXPECT_EQ(Listing().names(), Names());
  EXPECT_EQ(remove("app"), ENOPKG);
  EXPECT_FALSE(has_trace("app"));
}

// A refused downgrade has no words that the library knows, and a forced installation may say that
// it removed nothing.
TEST_P(RealOpkgLibrary, DowngradesByForceOnly) {
  ASSERT_EQ(install(package("app", "2.0")), 0);
  EXPECT_EQ(install(package("app", "1.0")), 0);
  EXPECT_EQ(installed_version("app"), "2.0");
  EXPECT_EQ(install(package("app", "1.0"), 1), is_old() ? ENOPKG : 0);
  EXPECT_EQ(installed_version("app"), "1.0");
}

TEST_P(RealOpkgLibrary, ReportsWhatOpkgRefuses) {
  ASSERT_EQ(install(package("base", "1.0")), 0);
  // Newer releases write their errors on standard error, where the library does not look.
  const int refused = is_old() ? TQ_ERR_PACKAGE_MALFORMED : 0;
  for (const char* further : {"Depends: nowhere\n", "Conflicts: base\n"}) {
    EXPECT_EQ(install(package("app", "1.0", further)), refused) << further;
    EXPECT_EQ(installed_version("app"), "");
  }
  write_file(fs::path(package("app", "1.0")), "text\n");
  EXPECT_EQ(install("/run/packages/app-1.0/package.tbx"), refused);
}

// The older release names what depends on it after "No packages removed." (oddity 58), the newer
// one on standard error (oddity 57).
TEST_P(RealOpkgLibrary, RemovesWhatOthersNeedByForceOnly) {
  ASSERT_EQ(install(package("base", "1.0")), 0);
  ASSERT_EQ(install(package("next", "1.0", "Depends: base\n")), 0);
  EXPECT_EQ(remove("base"), is_old() ? TQ_ERR_PACKAGE_DEPENDENCY : ENOPKG);
  EXPECT_EQ(installed_version("base"), "1.0");
  EXPECT_TRUE(fs::exists("/opt/base/1.0"));
  EXPECT_EQ(remove("base", 1), 0);
  EXPECT_FALSE(has_trace("base"));
  EXPECT_EQ(installed_version("next"), "1.0");
}

// The older release reinstalls without force too; the newer one refuses on standard error
// (oddity 57).
TEST_P(RealOpkgLibrary, ReinstallsTheSameVersionByForce) {
  const std::string app = package("app", "1.0");
  ASSERT_EQ(install(app), 0);
  fs::remove("/opt/app/common");
  EXPECT_EQ(install(app), 0);
  EXPECT_EQ(installed_version("app"), "1.0");
  EXPECT_EQ(fs::exists("/opt/app/common"), is_old());
  fs::remove("/opt/app/common");
  EXPECT_EQ(install(app, 1), is_old() ? ENOPKG : 0);
  EXPECT_EQ(installed_version("app"), "1.0");
  EXPECT_EQ(read_file("/opt/app/common"), "app\n");
}

TEST_P(RealOpkgLibrary, TakesOverAFileOfAnotherPackageByForceOnly) {
  ASSERT_EQ(install(package("app", "1.0")), 0);
  const std::string other = clashing_package();
  EXPECT_EQ(install(other), is_old() ? TQ_ERR_PACKAGE_MALFORMED : 0);
  EXPECT_EQ(installed_version("other"), "");
  EXPECT_EQ(Listing().names(), Names{"app"});
  EXPECT_FALSE(fs::exists("/opt/other"));
  EXPECT_EQ(read_file("/opt/app/common"), "app\n");
  EXPECT_EQ(install(other, 1), is_old() ? ENOPKG : 0);
  EXPECT_EQ(installed_version("other"), "1.0");
  EXPECT_TRUE(fs::exists("/opt/other/1.0"));
  EXPECT_EQ(read_file("/opt/app/common"), "of other\n");
}

TEST_P(RealOpkgLibrary, LeavesNothingOfAnotherArchitectureEvenByForce) {
  const std::string file = foreign_package();
  for (const int force : {0, 1}) {
    EXPECT_EQ(install(file, force), is_old() ? TQ_ERR_PACKAGE_MALFORMED : 0) << force;
    EXPECT_FALSE(has_trace("app")) << force;
  }
}

// The line about the space comes before "Cannot install package", and the last line counts
// (oddity 58).
TEST_P(RealOpkgLibrary, LeavesNothingWithoutTheInstalledSizeEvenByForce) {
  const std::string file = package("app", "1.0", "Installed-Size: 900000000000000\n");
  for (const int force : {0, 1}) {
    EXPECT_EQ(install(file, force), is_old() ? TQ_ERR_PACKAGE_MALFORMED : 0) << force;
    EXPECT_FALSE(has_trace("app")) << force;
  }
}

// The older release leaves a short file, the newer one a file with holes, and warns in words that
// the library does not know (oddity 57).
TEST_P(RealOpkgLibrary, RegistersAPackageForWhichTheSpaceRunsOut) {
  const std::string file = large_package();
  ASSERT_EQ(::mount("tmpfs", "/opt", "tmpfs", 0, "size=1m"), 0);
  EXPECT_EQ(install(file), is_old() ? TQ_ERR_PACKAGE_OTHER : 0);
  EXPECT_EQ(installed_version("app"), "1.0");
  EXPECT_NE(read_file("/opt/app/blob"),
            read_file(fs::path(file).parent_path() / "data/opt/app/blob"));
  EXPECT_EQ(fs::file_size("/opt/app/blob") < 3000000, is_old());
}

TEST_P(RealOpkgLibrary, RefusesAnArchiveThatEndsInItsControlMember) {
  const std::string file = package("app", "1.0");
  const std::string whole = read_file(file);
  for (const size_t size :
       {size_t{0}, whole.find("control.tar.gz"), whole.find("control.tar.gz") + kMemberStart}) {
    write_file(file, whole.substr(0, size));
    for (const int force : {0, 1}) {
      EXPECT_EQ(install(file, force), is_old() ? TQ_ERR_PACKAGE_MALFORMED : 0) << size;
      EXPECT_FALSE(has_trace("app")) << size;
    }
  }
}

// The older release does not notice, and registers the package without its files.
TEST_P(RealOpkgLibrary, DoesNotReportAnArchiveThatEndsInItsDataMember) {
  const std::string file = package("app", "1.0");
  const std::string whole = read_file(file);
  write_file(file, whole.substr(0, whole.find("data.tar.gz") + kMemberStart));
  EXPECT_EQ(install(file), 0);
  EXPECT_EQ(installed_version("app"), is_old() ? "1.0" : "");
  EXPECT_FALSE(fs::exists("/opt/app"));
}

TEST_P(RealOpkgLibrary, InstallsDespiteAMissingDependencyByForce) {
  EXPECT_EQ(install(package("app", "1.0", "Depends: nowhere\n"), 1),
            is_old() ? TQ_ERR_PACKAGE_DEPENDENCY : 0);
  EXPECT_EQ(installed_version("app"), "1.0");
}

TEST_P(RealOpkgLibrary, WorksInTheOfflineRoot) {
  write_kernel_command_line("root=/dev/mtdblock5\n");
  EXPECT_EQ(install(package("app", "1.0")), 0);
  EXPECT_EQ(Listing().only().start_app, "/mnt/root/usr/lib/opkg/info/app.tqstartapp");
  EXPECT_TRUE(fs::exists("/mnt/root/opt/app/1.0"));
  EXPECT_EQ(remove("app"), 0);
  EXPECT_FALSE(fs::exists("/mnt/root/opt/app"));
}

TEST_P(RealOpkgLibrary, RunsACommandLineAsItIs) {
  ASSERT_EQ(install(package("app", "1.0")), 0);
  const StringList lines;
  EXPECT_EQ(tq_opkg_run_command("opkg list-installed", lines.get()), 0);
  EXPECT_EQ(lines.texts(), Names{"app - 1.0"});
  EXPECT_EQ(tq_opkg_run_command_with_options("remove", nullptr, "--force-depends", "app"), 0);
  EXPECT_EQ(installed_version("app"), "");
}

}  // namespace
}  // namespace tarvio_test
