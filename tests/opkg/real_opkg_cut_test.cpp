// A power cut in the middle of a run of real releases of opkg, and what a further installation
// makes of what is left.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "opkg/real_opkg.h"
#include "support/children.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kScripts[] = "/run/scripts";

class RealOpkgCut : public RealOpkg {
 protected:
  // Its scripts leave their names, and hang where the test says so.
  static std::string package_with_scripts(const std::string& version) {
    const fs::path directory = fs::path(package("app", version)).parent_path();
    fs::create_directories(kScripts);
    for (const std::string script : {"preinst", "postinst", "prerm", "postrm"}) {
      const std::string mark = std::string(kScripts) + "/" + script;
      write_program(directory / script, "#!/bin/sh\necho " + version + " >>" + mark + "\n[ ! -e " +
                                            mark + ".hangs ] || sleep 60\nexit 0\n");
    }
    return pack(directory);
  }
  // Ends opkg, and all that it has started, in the script.
  static void cut(const std::string& script, const std::string& word, const std::string& operand) {
    const fs::path mark = fs::path(kScripts) / script;
    fs::remove(mark);
    write_file(mark.string() + ".hangs", "");
    const pid_t opkg = ::fork();
    if (opkg == 0) {
      ::setpgid(0, 0);
      ::execlp("opkg", "opkg", word.c_str(), operand.c_str(), nullptr);
      ::_exit(126);
    }
    ::setpgid(opkg, opkg);
    EXPECT_TRUE(eventually([&] { return fs::exists(mark); })) << script;
    ::kill(-opkg, SIGKILL);
    ::waitpid(opkg, nullptr, 0);
    fs::remove(mark.string() + ".hangs");
    fs::remove(mark);
  }
  static std::string file_for_opkg(const std::string& file) {
    const fs::path link = fs::path(file).replace_filename("app.ipk");
    if (!fs::exists(link)) fs::create_symlink(file, link);
    return link;
  }
  static std::string status() { return read_file("/usr/lib/opkg/status"); }
  // As after an installation that nothing has disturbed.
  static void expect_whole(const std::string& version) {
    EXPECT_EQ(installed_version("app"), version);
    EXPECT_THAT(status(), HasSubstr("Package: app\nVersion: " + version + "\n"));
    EXPECT_THAT(status(), HasSubstr("Status: install user installed\n"));
    EXPECT_THAT(read_file(fs::path(kScripts) / "postinst"), EndsWith(version + "\n"));
    EXPECT_EQ(read_file("/opt/app/" + version), version + "\n");
    EXPECT_EQ(run_tarvio({"remove", "app"}).status, 0);
    EXPECT_FALSE(has_trace("app"));
  }
};

INSTANTIATE_TEST_SUITE_P(Releases, RealOpkgCut, testing::Values(kOpkg018, kOpkg044));

TEST_P(RealOpkgCut, IsRepairedByAFurtherInstallation) {
  const std::string file = package_with_scripts("1.0");
  for (const char* script : {"preinst", "postinst"}) {
    cut(script, "install", file_for_opkg(file));
    const Ran again = install(file);
    EXPECT_EQ(again.status, 0) << script << ": " << again.errors;
    EXPECT_THAT(again.output, StartsWith("installed app 1.0")) << script;
    expect_whole("1.0");
  }
}

TEST_P(RealOpkgCut, IsRepairedInAnUpgradeToo) {
  const std::string older = package_with_scripts("1.0");
  const std::string newer = package_with_scripts("2.0");
  for (const std::string script : {"preinst", "prerm", "postrm", "postinst"}) {
    // That release runs the scripts of the version before in a removal only.
    if (is_old() && (script == "prerm" || script == "postrm")) continue;
    ASSERT_EQ(install(older).status, 0);
    cut(script, "install", file_for_opkg(newer));
    const Ran again = install(newer);
    EXPECT_EQ(again.status, 0) << script << ": " << again.errors;
    EXPECT_THAT(again.output, StartsWith("installed app 2.0")) << script;
    EXPECT_FALSE(fs::exists("/opt/app/1.0")) << script;
    expect_whole("2.0");
  }
}

TEST_P(RealOpkgCut, IsRepairedByAFurtherRemoval) {
  const std::string file = package_with_scripts("1.0");
  for (const char* script : {"prerm", "postrm"}) {
    ASSERT_EQ(install(file).status, 0);
    cut(script, "remove", "app");
    EXPECT_EQ(run_tarvio({"remove", "app"}).status, 0) << script;
    EXPECT_FALSE(has_trace("app")) << script;
  }
}

}  // namespace
}  // namespace tarvio_test
