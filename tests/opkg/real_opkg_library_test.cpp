// The package calls of the library with real releases of opkg. It judges what opkg prints.
#include <cerrno>
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
  ASSERT_EQ(install(package("next", "1.0", "Depends: base\n")), 0);
  EXPECT_NE(remove("base"), 0);
  EXPECT_EQ(installed_version("base"), "1.0");
  EXPECT_EQ(remove("base", 1), 0);
  EXPECT_EQ(installed_version("base"), "");
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
