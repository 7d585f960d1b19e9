// tarvio install, remove and files, with a stand-in for opkg.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/children.h"
#include "support/files.h"
#include "support/packages/opkg_tool.h"
#include "support/packages/package_listing.h"
#include "support/packages/stand_in_opkg.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using Names = std::vector<std::string>;

// Package files beside each other, and a stand-in for opkg that behaves like one of its releases.
class ClientChange : public WithoutPackages, public testing::WithParamInterface<const char*> {
 protected:
  ClientChange() {
    use_stand_in_opkg();
    ::setenv("OPKG_PROFILE", GetParam(), 1);
    write_kernel_command_line("root=/dev/mtdblock4\n");
    for (const char* name : {"app-1.0", "app-2.0", "lib-1.0", "needslib-1.0", "needsmore-1.0",
                             "no-control-file", "text"}) {
      std::filesystem::copy_file(
          std::filesystem::path(TARVIO_TEST_DATA "/opkg/packages") / (std::string(name) + ".ipk"),
          file(name));
    }
    directory_entries_ = entries();
  }
  // Nothing is left of any run, and nothing is added beside the package files.
  ~ClientChange() override {
    EXPECT_EQ(temporary_.entries(), Names());
    EXPECT_EQ(entries(), directory_entries_);
  }

  std::string file(const std::string& name) const { return directory_ / (name + ".tbx"); }
  static std::string installed_version(const std::string& name) {
    const std::filesystem::path control = std::filesystem::path(kInformation) / (name + ".control");
    if (!std::filesystem::exists(control)) return "";
    const std::string text = read_file(control);
    const size_t at = text.find("Version: ") + 9;
    return text.substr(at, text.find('\n', at) - at);
  }

 private:
  size_t entries() const {
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator(directory_.path()), {}));
  }

  const TempDir directory_;
  const PrivateTemporaryDirectory temporary_;
  size_t directory_entries_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Releases, ClientChange,
                         testing::Values("0.1.8", "0.2.0", "0.2.4", "0.3.6", "0.9.0-libsolv"));

TEST_P(ClientChange, InstallsListsAndRemoves) {
  const Ran install = run_tarvio({"install", file("app-1.0")});
  EXPECT_EQ(install.status, 0);
  EXPECT_EQ(install.output, "installed app 1.0\n");
  EXPECT_EQ(install.errors, "");
  EXPECT_EQ(installed_version("app"), "1.0");
  EXPECT_THAT(run_tarvio({"list"}).output, HasSubstr("\napp   1.0      application  native"));

  const Ran files = run_tarvio({"files", "app"});
  EXPECT_EQ(files.status, 0);
  EXPECT_THAT(files.output, HasSubstr("/opt/app/share/readme.txt\n"));
  EXPECT_THAT(files.output, Not(HasSubstr("is installed on root")));

  const Ran remove = run_tarvio({"remove", "app"});
  EXPECT_EQ(remove.status, 0);
  EXPECT_EQ(remove.output, "removed app\n");
  EXPECT_EQ(remove.errors, "");
  EXPECT_EQ(installed_version("app"), "");
}

TEST_P(ClientChange, SaysWhenAPackageIsNotManaged) {
  EXPECT_EQ(run_tarvio({"install", file("lib-1.0")}).output,
            "installed lib 1.0, but it has no tqcontrol file, so tarvio does not manage it\n");
  EXPECT_EQ(run_tarvio({"remove", "lib"}).output, "removed lib\n");
}

TEST_P(ClientChange, GoesOnAfterAFailure) {
  const Ran install =
      run_tarvio({"install", file("nowhere"), file("text"), file("app-1.0"), file("lib-1.0")});
  EXPECT_EQ(install.status, 1);
  EXPECT_THAT(install.errors, HasSubstr("tarvio: cannot install '" + file("nowhere") +
                                        "': No such file or directory (2)\n"));
  EXPECT_THAT(install.errors, HasSubstr("tarvio: cannot install '" + file("text") +
                                        "': it has no control.tar.gz: damaged, or not a package "
                                        "file (22)\n"));
  EXPECT_EQ(installed_version("app"), "1.0");
  EXPECT_EQ(installed_version("lib"), "1.0");
  const Ran remove = run_tarvio({"remove", "nosuch", "app", "lib"});
  EXPECT_EQ(remove.status, 1);
  EXPECT_EQ(remove.output, "removed app\nremoved lib\n");
  EXPECT_THAT(remove.errors, HasSubstr("cannot remove 'nosuch': it is not installed (65)\n"));
}

TEST_P(ClientChange, ShowsOpkgsOwnWordsWhenADependencyIsMissing) {
  const Ran run = run_tarvio({"install", file("needsmore-1.0")});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_THAT(run.errors, HasSubstr("tarvio: opkg: "));
  EXPECT_THAT(run.errors, HasSubstr("needsmore"));
  const bool says_why = std::string(GetParam()) != "0.9.0-libsolv";
  EXPECT_THAT(run.errors, HasSubstr("tarvio: cannot install '" + file("needsmore-1.0") + "': " +
                                    (says_why ? "Tarvio package dependency error, and"
                                              : "opkg failed with status 1, and")));
  EXPECT_EQ(installed_version("needsmore"), "");
}

TEST_P(ClientChange, InstallsByForceDespiteAMissingDependency) {
  const Ran run = run_tarvio({"install", "--force", file("needsmore-1.0")});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("installed needsmore 1.0"));
  EXPECT_EQ(installed_version("needsmore"), "1.0");
}

TEST_P(ClientChange, LeavesAVersionThatIsThereAsItIs) {
  ASSERT_EQ(run_tarvio({"install", file("app-1.0")}).status, 0);
  const Ran run = run_tarvio({"install", file("app-1.0")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "app 1.0 is already installed; nothing changed\n");
  EXPECT_EQ(run.errors, "");
  const json result = json::parse(run_tarvio({"install", "--json", file("app-1.0")}).output);
  EXPECT_EQ(result[0]["code"], 0);
  EXPECT_EQ(result[0]["installed_version"], "1.0");
}

TEST_P(ClientChange, InstallsByForceTheSameAndAnOlderVersion) {
  ASSERT_EQ(run_tarvio({"install", file("app-2.0")}).status, 0);
  EXPECT_THAT(run_tarvio({"install", "--force", file("app-2.0")}).output,
              HasSubstr("installed app 2.0"));
  const Ran older = run_tarvio({"install", "--force", file("app-1.0")});
  EXPECT_EQ(older.status, 0);
  EXPECT_THAT(older.output, HasSubstr("installed app 1.0"));
}

TEST_P(ClientChange, RemovesByForceWhatOthersNeed) {
  ASSERT_EQ(run_tarvio({"install", file("lib-1.0"), file("needslib-1.0")}).status, 0);
  const Ran refused = run_tarvio({"remove", "lib"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output, "");
  EXPECT_THAT(refused.errors, HasSubstr("needslib"));
  EXPECT_THAT(refused.errors, HasSubstr("lib 1.0 is still installed"));
  EXPECT_EQ(installed_version("lib"), "1.0");
  EXPECT_EQ(run_tarvio({"remove", "--force", "lib"}).output, "removed lib\n");
}

TEST_P(ClientChange, IsJsonForScripts) {
  const Ran run = run_tarvio({"install", "--json", file("app-1.0"), file("needsmore-1.0")});
  EXPECT_EQ(run.status, 1);
  const json results = json::parse(run.output);
  ASSERT_EQ(results.size(), 2U);
  EXPECT_EQ(results[0]["file"], file("app-1.0"));
  EXPECT_EQ(results[0]["code"], 0);
  EXPECT_EQ(results[0]["name"], "app");
  EXPECT_EQ(results[0]["installed_version"], "1.0");
  EXPECT_EQ(results[0]["opkg_code"], 0);
  EXPECT_NE(results[1]["code"], 0);
  EXPECT_EQ(results[1]["installed_version"], nullptr);
  EXPECT_FALSE(results[1]["opkg_lines"].empty());
  const json removed = json::parse(run_tarvio({"remove", "--json", "app"}).output);
  EXPECT_EQ(removed[0]["package"], "app");
  EXPECT_EQ(removed[0]["message"], "removed app");
}

TEST_P(ClientChange, InstallsAFileOfAnyName) {
  const TempDir directory;
  const std::string odd = directory / "it's $(reboot); & *.tbx";
  std::filesystem::copy_file(file("app-1.0"), odd);
  EXPECT_EQ(run_tarvio({"install", odd}).status, 0);
  EXPECT_EQ(installed_version("app"), "1.0");
}

TEST_P(ClientChange, ListsTheFilesOfSeveralPackages) {
  ASSERT_EQ(run_tarvio({"install", file("app-1.0"), file("lib-1.0")}).status, 0);
  const Ran run = run_tarvio({"files", "lib", "nosuch", "app"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, testing::StartsWith("lib:\n/"));
  EXPECT_THAT(run.output, HasSubstr("\n\napp:\n/"));
  EXPECT_THAT(run.errors, HasSubstr("Package nosuch not installed"));
  EXPECT_THAT(run.errors, HasSubstr("cannot list the files of 'nosuch': "));
  const json packages = json::parse(run_tarvio({"files", "--json", "lib"}).output);
  EXPECT_EQ(packages[0]["package"], "lib");
  EXPECT_THAT(packages[0]["files"], testing::Contains("/opt/lib/share/readme.txt"));
}

// Newer releases complain on standard error alone, also of what has nothing to do with the package.
TEST_P(ClientChange, DoesNotMistakeAFailedListingForAMissingPackage) {
  ASSERT_EQ(run_tarvio({"install", file("app-1.0")}).status, 0);
  const Ran run =
      run_tarvio({"files", "app"}, [] { ::setenv("OPKG_LOCK_ERROR", "Permission denied", 1); });
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("lock: Permission denied."));
  EXPECT_THAT(run.errors, Not(HasSubstr("not installed")));
}

using ClientChangeByAnyOpkg = WithoutPackages;

TEST_F(ClientChangeByAnyOpkg, RefusesNamesThatNoPackageCanHave) {
  const OpkgTool opkg;
  for (const char* name : {"a;b", "-x", "../x", "a*", ""}) {
    for (const char* command : {"remove", "files"}) {
      const Ran run = run_tarvio({command, "--", name});
      EXPECT_EQ(run.status, 1);
      EXPECT_THAT(run.errors,
                  HasSubstr("'" + std::string(name) + "': not a valid package name (22)"));
    }
  }
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientChangeByAnyOpkg, RefusesAFileWithAnotherExtension) {
  const OpkgTool opkg;
  const TempDir directory;
  write_file(directory / "clock.ipk", "x");
  EXPECT_THAT(run_tarvio({"install", directory / "clock.ipk"}).errors,
              HasSubstr("package file names must end in .tbx (22)"));
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientChangeByAnyOpkg, RefusesAPackageOfAHostileName) {
  const OpkgTool opkg;
  const HandMadePackage package("Package: ../../x\nVersion: 1\n");
  EXPECT_THAT(run_tarvio({"install", package.path()}).errors,
              HasSubstr("its package name is not valid (22)"));
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientChangeByAnyOpkg, IsNotMisledByASilentFailure) {
  const OpkgTool opkg("Something went wrong in new words.\n", "255");
  const HandMadePackage package;
  const Ran install = run_tarvio({"install", package.path()});
  EXPECT_EQ(install.status, 1);
  EXPECT_EQ(install.errors,
            "tarvio: opkg: Something went wrong in new words.\n"
            "tarvio: cannot install '" +
                package.path() +
                "': opkg failed with status 255, and clock is not installed (5)\n");
  EXPECT_THAT(opkg.arguments(), ElementsAre("install", testing::EndsWith("/clock.ipk")));
  add_package("clock");
  const Ran remove = run_tarvio({"remove", "clock"});
  EXPECT_EQ(remove.status, 1);
  EXPECT_THAT(remove.errors,
              HasSubstr("opkg failed with status 255, and clock 1.0 is still installed (5)"));
  opkg.prints("All is well.\n");
  EXPECT_THAT(run_tarvio({"remove", "clock"}).errors,
              HasSubstr("opkg reported no recognised error, but clock 1.0 is still installed (5)"));
}

TEST_F(ClientChangeByAnyOpkg, IsNotMisledByAComplaintAboutASuccess) {
  const OpkgTool opkg("No packages removed.\n");
  add_package("clock");
  std::filesystem::rename("/usr/lib/opkg/info", "/usr/lib/opkg/ready");
  std::filesystem::create_directory("/usr/lib/opkg/info");
  const TempDir tools;
  write_program(
      tools / "opkg",
      "#!/bin/sh\ncp /usr/lib/opkg/ready/* /usr/lib/opkg/info\necho No packages removed.\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  const HandMadePackage package;
  const Ran run = run_tarvio({"install", package.path(), "--force"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output,
            "installed clock 1.0, although opkg reported: Package "
            "not installed (65)\n");
  EXPECT_EQ(run.errors, "tarvio: opkg: No packages removed.\n");
}

// A script of the package may print the last words, and need not end their line.
TEST_F(ClientChangeByAnyOpkg, MayEndWithoutALineEnd) {
  const TempDir tools;
  write_program(tools / "opkg", "#!/bin/sh\nrm /usr/lib/opkg/info/$2.*\nprintf 'Good bye'\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  add_package("clock");
  const Ran run = run_tarvio({"remove", "clock"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "removed clock\n");
  EXPECT_EQ(run.errors, "");
  add_package("clock");
  write_program(tools / "opkg", "#!/bin/sh\nprintf 'Good bye'\nexit 7\n");
  EXPECT_EQ(run_tarvio({"remove", "clock"}).errors,
            "tarvio: opkg: Good bye\ntarvio: cannot remove 'clock': opkg failed with status 7, and "
            "clock 1.0 is still installed (5)\n");
}

// opkg runs in the directory itself.
TEST_F(ClientChangeByAnyOpkg, TakesATemporaryDirectoryByARelativePath) {
  const OpkgTool opkg;
  const HandMadePackage package;
  (void)run_tarvio({"install", package.path()}, [&] {
    EXPECT_EQ(::chdir((package / "").c_str()), 0);
    ::setenv("TMPDIR", "data", 1);
  });
  EXPECT_THAT(opkg.arguments(),
              ElementsAre("install", testing::StartsWith((package / "data/tarvio.").string())));
}

// Also when the package is there already: nothing says that it would be left as it is.
TEST_F(ClientChangeByAnyOpkg, SaysThatThereIsNoOpkg) {
  const HandMadePackage package;
  const PathWithout path("opkg");
  for (int round = 0; round < 2; ++round) {
    EXPECT_THAT(
        complaints_without_opkg(package.path()),
        testing::Each("the tool opkg is missing; install it, or add its directory to PATH (2)\n"));
    add_package("clock");
  }
}

TEST_F(ClientChangeByAnyOpkg, GivesOpkgAnEmptyInputAndPlainWords) {
  const TempDir tools;
  write_program(tools / "opkg", "#!/bin/sh\ncat\necho \"LC_ALL=$LC_ALL\"\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  add_package("clock");
  EXPECT_THAT(run_tarvio({"remove", "clock"}).errors,
              testing::StartsWith("tarvio: opkg: LC_ALL=C\n"));
}

TEST_F(ClientChangeByAnyOpkg, StopsAnOpkgThatDoesNotEnd) {
  const TempDir tools;
  const PrivateTemporaryDirectory temporary;
  write_program(tools / "opkg", "#!/bin/sh\nsleep 1000\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  add_package("clock");
  const Ran run = run_tarvio({"remove", "clock", "--timeout", "0.1"});
  EXPECT_EQ(run.status, 5);
  EXPECT_EQ(run.errors,
            "tarvio: cannot remove 'clock': opkg timed out and was stopped (use --timeout "
            "SECONDS to wait longer), and clock 1.0 is still installed (110)\n");
  EXPECT_EQ(temporary.entries(), Names());
}

TEST_F(ClientChangeByAnyOpkg, LeavesNothingBehindWhenItIsInterrupted) {
  const TempDir tools;
  write_program(tools / "opkg", "#!/bin/sh\n: >" + (tools / "started").string() + "\nsleep 1000\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  const HandMadePackage package;
  const PrivateTemporaryDirectory temporary;
  const pid_t client = ::fork();
  if (client == 0) {
    ::execl(TARVIO_CLIENT, "tarvio", "install", package.path().c_str(), nullptr);
    ::_exit(126);
  }
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(tools / "started"); }));
  ::kill(client, SIGTERM);
  const int status = end_of(client);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_EQ(temporary.entries(), Names());
  EXPECT_FALSE(std::filesystem::exists(package / "clock.ipk"));
}

TEST_F(ClientChangeByAnyOpkg, InstallsWhatPackMakes) {
  use_stand_in_opkg();
  const SampleDirectory directory;
  const std::string file = directory.beside("clock.tbx");
  ASSERT_EQ(run_tarvio({"pack", directory.path(), "-o", file}).status, 0);
  EXPECT_EQ(run_tarvio({"install", file}).status, 0);
  EXPECT_EQ(read_file("/opt/clock/face"), "12\n");
  EXPECT_EQ(::access("/usr/lib/opkg/info/clock.tqstartapp", X_OK), 0);
  EXPECT_EQ(run_tarvio({"remove", "clock"}).status, 0);
}

}  // namespace
}  // namespace tarvio_test
