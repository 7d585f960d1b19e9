// Installing and removing packages with the sandbox's stand-in for opkg.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/packages/stand_in_opkg.h"
#include "support/string_list.h"
#include "support/work_directory.h"
#include "tarvio/client.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kPackages[] = TARVIO_TEST_DATA "/opkg/packages/";

class Packages : public testing::Test {
 protected:
  Packages() {
    use_stand_in_opkg();
    ::setenv("OPKG_AVAILABLE_KB", "65532", 1);
  }
  ~Packages() override {
    ::unsetenv("OPKG_LOCK_ERROR");
    ::unsetenv("OPKG_PROFILE");
    write_kernel_command_line("root=/dev/mtdblock4\n");
    for (const char* directory : {"/usr/lib/opkg", "/opt", "/mnt/root"}) {
      for (const auto& entry : fs::directory_iterator(directory)) fs::remove_all(entry.path());
    }
    fs::create_directory("/usr/lib/opkg/info");
  }

  // Installs one of the recorded package files.
  int install(const std::string& name, int force = 0) const {
    const std::string path = work_ / (name + ".tbx");
    fs::copy_file(kPackages + name + ".ipk", path, fs::copy_options::overwrite_existing);
    const int result = tq_tbx_install(path.c_str(), force);
    EXPECT_FALSE(work_.has(name + ".ipk"));
    return result;
  }

  // Name and version of each package of this system.
  static std::vector<std::string> listed() {
    tq_package_info* packages = nullptr;
    EXPECT_EQ(tq_tbx_list(TQ_CATEGORY_ANY, TQ_SUBCATEGORY_ANY, nullptr, &packages), 0);
    std::vector<std::string> names;
    for (const tq_package_info* at = packages; at != nullptr; at = at->next) {
      names.push_back(std::string(at->name) + " " + at->version);
    }
    tq_delete_tq_package_info_recurse(&packages);
    return names;
  }

  const WorkDirectory work_;
};

TEST_F(Packages, AreListedFromTheirInstallToTheirRemoval) {
  EXPECT_EQ(install("app-1.0"), 0);
  EXPECT_EQ(install("other-1.0"), 0);
  EXPECT_THAT(listed(), UnorderedElementsAre("app 1.0", "other 1.0"));
  EXPECT_EQ(tq_tbx_remove("app", 0), 0);
  EXPECT_THAT(listed(), ElementsAre("other 1.0"));
  EXPECT_FALSE(fs::exists("/opt/app"));
}

TEST_F(Packages, ComeAndGoThroughTheCallsOfAClient) {
  const std::string path = work_ / "app.tbx";
  fs::copy_file(std::string(kPackages) + "app-1.0.ipk", path);
  EXPECT_EQ(tq_lib_install_pkg(path.c_str(), 0), 0);
  EXPECT_THAT(listed(), ElementsAre("app 1.0"));
  uint32_t count = 0;
  char** files = nullptr;
  EXPECT_EQ(tq_lib_files_pkg("app", &count, &files), 0);
  const std::vector<std::string> names(files, files + count);
  EXPECT_THAT(names, testing::Contains("/opt/app/bin/app"));
  for (uint32_t at = 0; at < count; ++at) std::free(files[at]);
  std::free(files);
  EXPECT_EQ(tq_lib_remove_pkg("app", 0), 0);
  EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(Packages, AreUpgradedByAnInstall) {
  EXPECT_EQ(install("app-1.0"), 0);
  EXPECT_EQ(install("app-2.0"), 0);
  EXPECT_THAT(listed(), ElementsAre("app 2.0"));
}

TEST_F(Packages, GiveTheirFiles) {
  install("app-1.0");
  const StringList files;
  EXPECT_EQ(tq_tbx_files("app", files.get()), 0);
  EXPECT_THAT(files.texts(),
              UnorderedElementsAre("/", "/opt/", "/opt/app/", "/opt/app/bin/", "/opt/app/bin/app",
                                   "/opt/app/share/", "/opt/app/share/readme.txt",
                                   "/opt/app/share/version-1.0"));
}

TEST_F(Packages, GoToTheOfflineRoot) {
  write_kernel_command_line("root=/dev/mtdblock5\n");
  fs::create_directories("/mnt/root/usr/lib/opkg");
  EXPECT_EQ(install("app-1.0"), 0);
  EXPECT_TRUE(fs::exists("/mnt/root/opt/app/bin/app"));
  EXPECT_THAT(listed(), ElementsAre("app 1.0"));
  // The files are asked for in the running system all the same.
  const StringList files;
  EXPECT_EQ(tq_tbx_files("app", files.get()), 10305);
  EXPECT_EQ(tq_tbx_remove("app", 0), 0);
  EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(Packages, ThatAreRefusedAreNotListed) {
  install("app-1.0");
  for (const char* name : {"needsmore-1.0", "rival-1.0", "arm-1.0", "big-1.0", "text",
                           "no-control-member", "garbage-control"}) {
    EXPECT_EQ(install(name), 10301) << name;
    EXPECT_THAT(listed(), ElementsAre("app 1.0"));
  }
}

TEST_F(Packages, ThatLackADependencyAreInstalledByForceWithAComplaint) {
  EXPECT_EQ(install("needsmore-1.0", 1), 10302);
  EXPECT_THAT(listed(), ElementsAre("needsmore 1.0"));
}

TEST_F(Packages, AreDowngradedByForceOnly) {
  install("app-2.0");
  EXPECT_EQ(install("app-1.0"), 0);  // opkg refuses in words that are not recognised
  EXPECT_THAT(listed(), ElementsAre("app 2.0"));
  EXPECT_EQ(install("app-1.0", 1), 0);
  EXPECT_THAT(listed(), ElementsAre("app 1.0"));
}

TEST_F(Packages, ThatAreNeededAreRemovedByForceOnly) {
  install("lib-1.0");
  install("needslib-1.0");
  EXPECT_EQ(tq_tbx_remove("lib", 0), 10302);
  EXPECT_TRUE(fs::exists("/usr/lib/opkg/info/lib.control"));
  EXPECT_EQ(tq_tbx_remove("lib", 1), 0);
  EXPECT_FALSE(fs::exists("/usr/lib/opkg/info/lib.control"));
}

TEST_F(Packages, ThatAreNotInstalledAreNotRemoved) { EXPECT_EQ(tq_tbx_remove("app", 1), 65); }

TEST_F(Packages, OfAnotherUserStayAsTheyAre) {
  ::setenv("OPKG_LOCK_ERROR", "Permission denied", 1);
  const StringList files;
  EXPECT_EQ(install("app-1.0"), 13);
  EXPECT_EQ(tq_tbx_remove("app", 0), 13);
  EXPECT_EQ(tq_tbx_files("app", files.get()), 13);
}

struct Release {
  const char* version;
  int forced_install;  // of a good package
  int missing;         // a dependency
  int removed_twice;
};

void PrintTo(const Release& row, std::ostream* stream) { *stream << row.version; }

class PackagesWithOpkg : public Packages, public testing::WithParamInterface<Release> {};

// Standard error and unknown words are not seen: 0 does not prove success.
TEST_P(PackagesWithOpkg, AreJudgedByWhatItPrintsOnStandardOutput) {
  ::setenv("OPKG_PROFILE", GetParam().version, 1);
  EXPECT_EQ(install("app-1.0", 1), GetParam().forced_install);
  EXPECT_THAT(listed(), ElementsAre("app 1.0"));
  EXPECT_EQ(install("needsmore-1.0"), GetParam().missing);
  EXPECT_THAT(listed(), ElementsAre("app 1.0"));
  EXPECT_EQ(tq_tbx_remove("app", 0), 0);
  EXPECT_EQ(tq_tbx_remove("app", 0), GetParam().removed_twice);
}

INSTANTIATE_TEST_SUITE_P(Package, PackagesWithOpkg,
                         testing::Values(Release{"0.1.8", 0, 10301, 65},
                                         Release{"0.2.0", 65, 10301, 65},
                                         Release{"0.2.4", 0, 10301, 65}, Release{"0.3.6", 0, 0, 65},
                                         Release{"0.9.0-libsolv", 0, 0, 0}));

}  // namespace
}  // namespace tarvio_test
