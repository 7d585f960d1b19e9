// tarvio with real releases of opkg that fail.
#include <sys/mount.h>

#include <filesystem>
#include <string>

#include "opkg/real_opkg.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::EndsWith;
using testing::HasSubstr;

class RealOpkgFailure : public RealOpkg {
 protected:
  // A package whose script of that name fails.
  static std::string package_with_failing(const std::string& script, const std::string& name) {
    const fs::path directory = fs::path(package(name, "1.0")).parent_path();
    write_program(directory / script, "#!/bin/sh\nexit 3\n");
    return pack(directory);
  }
};

INSTANTIATE_TEST_SUITE_P(Releases, RealOpkgFailure, testing::Values(kOpkg018, kOpkg044));

TEST_P(RealOpkgFailure, LeavesNothingOfADamagedFile) {
  const std::string whole = read_file(package("app", "1.0"));
  const std::string file = package("other", "1.0");
  for (size_t size = 0; size + 1 < whole.size(); size += whole.size() / 12) {
    write_file(file, whole.substr(0, size));
    EXPECT_EQ(install(file).status, 1) << size;
    EXPECT_EQ(install_by_force(file).status, 1) << size;
    EXPECT_FALSE(has_trace("app")) << size;
  }
  for (const char* name : {"text", "damaged-control", "no-control-member", "garbage-control",
                           "no-control-file", "no-version"}) {
    fs::copy_file(fs::path(TARVIO_TEST_DATA "/opkg/packages") / (std::string(name) + ".ipk"), file,
                  fs::copy_options::overwrite_existing);
    EXPECT_EQ(install(file).status, 1) << name;
  }
  EXPECT_TRUE(fs::is_empty("/opt"));
  EXPECT_TRUE(fs::is_empty(kInformation));
}

TEST_P(RealOpkgFailure, RefusesAnotherArchitectureEvenByForce) {
  const std::string file = foreign_package();
  for (const Ran& run : {install(file), install_by_force(file)}) {
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors,
                EndsWith("': opkg cannot install it, and app is not installed (10301)\n"));
  }
  EXPECT_FALSE(has_trace("app"));
}

TEST_P(RealOpkgFailure, SaysThatThereIsNoSpace) {
  write_kernel_command_line("root=/dev/mtdblock5\n");
  const Ran run = install(package("app", "1.0", "Installed-Size: 900000000000000\n"));
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("kb available on filesystem"));
  EXPECT_THAT(run.errors, EndsWith("not enough space, and app is not installed (10303)\n"));
  EXPECT_EQ(installed_version("app", "/mnt/root"), "");
}

// No release says so, or fails: the file would be short, or full of holes.
TEST_P(RealOpkgFailure, SaysThatTheSpaceWouldRunOut) {
  const std::string file = large_package();
  ASSERT_EQ(::mount("tmpfs", "/opt", "tmpfs", 0, "size=1m"), 0);
  for (const Ran& run : {install(file), install_by_force(file)}) {
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, EndsWith("': not enough space in '/opt': 2.9 MiB needed, 1.0 MiB free "
                                     "(28)\n"));
  }
  EXPECT_FALSE(has_trace("app"));
  ASSERT_EQ(::umount("/opt"), 0);
  EXPECT_EQ(install(file).status, 0);
}

TEST_P(RealOpkgFailure, SaysWhatAFailedScriptLeaves) {
  const Ran unconfigured = install(package_with_failing("postinst", "late"));
  EXPECT_EQ(unconfigured.status, 1);
  EXPECT_THAT(unconfigured.errors, HasSubstr(", and late 1.0 is installed ("));
  EXPECT_EQ(installed_version("late"), "1.0");
  EXPECT_EQ(run_tarvio({"remove", "late"}).status, 0);
  const Ran aborted = install(package_with_failing("preinst", "early"));
  EXPECT_EQ(aborted.status, 1);
  EXPECT_THAT(aborted.errors, HasSubstr(", and early is not installed ("));
  EXPECT_EQ(installed_version("early"), "");
  ASSERT_EQ(install(package_with_failing("prerm", "stays")).status, 0);
  const Ran kept = run_tarvio({"remove", "stays"});
  EXPECT_EQ(kept.status, 1);
  EXPECT_THAT(kept.errors, HasSubstr("stays 1.0 is still installed ("));
  EXPECT_EQ(installed_version("stays"), "1.0");
}

// As releases from 0.3 on are without a line in their configuration.
TEST_P(RealOpkgFailure, SaysWhereItKeepsItsInformation) {
  write_file("/etc/opkg/opkg.conf", "dest root /\narch all 1\n");
  const std::string app = package("app", "1.0");
  if (is_old()) {
    EXPECT_EQ(install(app).status, 0);
    EXPECT_EQ(run_tarvio({"remove", "app"}).status, 0);
    return;
  }
  const std::string advice =
      "opkg keeps its information in /var/lib/opkg/info; add 'option info_dir /usr/lib/opkg/info' "
      "to /etc/opkg/opkg.conf (2)\n";
  for (const Ran& run :
       {install(app), install(app), run_tarvio({"remove", "app"}), run_tarvio({"list"})}) {
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_THAT(run.errors, EndsWith(advice));
  }
  EXPECT_TRUE(fs::exists("/var/lib/opkg/info/app.control"));
  EXPECT_TRUE(fs::exists("/opt/app/1.0"));
  write_file("/etc/opkg/opkg.conf",
             "dest root /\narch all 1\noption info_dir /usr/lib/opkg/info\n");
  EXPECT_EQ(install_by_force(app).status, 0);
  EXPECT_EQ(run_tarvio({"list", "--name", "app"}).status, 0);
  EXPECT_EQ(run_tarvio({"remove", "app"}).output, "removed app\n");
  EXPECT_FALSE(fs::exists("/opt/app"));
}

}  // namespace
}  // namespace tarvio_test
