// The sandbox's stand-in for opkg does and says what the real one did.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/packages/recorded_opkg.h"
#include "support/packages/stand_in_opkg.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kInfo[] = "/usr/lib/opkg/info";
constexpr char kPackages[] = TARVIO_TEST_DATA "/opkg/packages";

struct Ran {
  int exit_status = -1;
  std::string output;
};

Ran run(const std::string& command) {
  Ran ran;
  FILE* output = ::popen(("{ " + command + "\n} 2>&1").c_str(), "r");
  if (output == nullptr) return ran;
  for (int byte = std::fgetc(output); byte != EOF; byte = std::fgetc(output)) {
    ran.output += static_cast<char>(byte);
  }
  ran.exit_status = WEXITSTATUS(::pclose(output));
  return ran;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::vector<std::string> sorted_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

std::vector<std::string> names_in(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory))
    names.push_back(entry.path().filename());
  return names;
}

class StandInOpkg : public testing::Test {
 protected:
  StandInOpkg() {
    use_stand_in_opkg();
    ::setenv("OPKG_AVAILABLE_KB", "65532", 1);
  }
  ~StandInOpkg() override { clear(); }

  static void clear() {
    for (const char* directory : {"/usr/lib/opkg", "/opt", "/mnt/root"}) {
      for (const auto& entry : fs::directory_iterator(directory)) fs::remove_all(entry.path());
    }
    fs::create_directory(kInfo);
  }

  static Ran opkg(const std::string& arguments) {
    return run("cd " + std::string(kPackages) + "; opkg " + arguments);
  }

  static void expect_as_recorded(const RecordedRun& recorded) {
    clear();
    const auto command = [](const std::string& text) {
      return replaced(replaced(text, "/tmp/pkg", kPackages), "(offline root prepared)",
                      "mkdir -p /mnt/root/usr/lib/opkg");
    };
    if (!recorded.before.empty()) run(command(recorded.before));
    const Ran ran = run(command(recorded.command));
    EXPECT_EQ(ran.exit_status, recorded.exit_status) << recorded.name;
    const std::string output = replaced(ran.output, kPackages, "/tmp/pkg");
    if (recorded.name.find("files") == std::string::npos) {
      EXPECT_EQ(output, recorded.output) << recorded.name;
    } else {  // the real one lists the files of a package in the order of a hash
      EXPECT_EQ(sorted_lines(output), sorted_lines(recorded.output)) << recorded.name;
    }
  }
};

struct Imitated {
  std::string version;
  std::vector<std::string> names;
};

void PrintTo(const Imitated& row, std::ostream* stream) { *stream << row.version; }

class StandInOpkgRelease : public StandInOpkg, public testing::WithParamInterface<Imitated> {};

TEST_P(StandInOpkgRelease, PrintsWhatTheRealOnePrinted) {
  ::setenv("OPKG_PROFILE", GetParam().version.c_str(), 1);
  const std::vector<RecordedRun> runs = recorded_runs(GetParam().version);
  for (const std::string& name : GetParam().names) {
    const auto run = std::find_if(runs.begin(), runs.end(),
                                  [&](const RecordedRun& row) { return row.name == name; });
    ASSERT_NE(run, runs.end()) << name;
    expect_as_recorded(*run);
  }
  ::unsetenv("OPKG_PROFILE");
}

const Imitated kImitated[] = {
    {"0.1.8",
     {"install-ok",
      "install-force-options",
      "reinstall-same",
      "upgrade",
      "downgrade",
      "depends-missing",
      "depends-missing-force-depends",
      "file-text",
      "file-garbage-control",
      "file-missing",
      "extension-upper-IPK",
      "space-declared",
      "file-clash",
      "file-clash-force-overwrite",
      "remove-ok",
      "remove-missing",
      "remove-depended",
      "remove-depended-force-depends",
      "files-ok",
      "files-missing",
      "files-no-files",
      "list-installed",
      "offline-install",
      "offline-remove",
      "offline-files",
      "offline-list-installed"}},
    {"0.2.0",
     {"install-ok", "install-force-options", "reinstall-same", "reinstall-force-options", "upgrade",
      "upgrade-force-options", "downgrade", "depends-missing", "depends-missing-force-options",
      "conflict", "file-text", "file-missing", "file-clash", "space-declared", "remove-missing",
      "remove-depended", "files-ok", "offline-install", "offline-install-force-options"}},
    {"0.2.4",
     {"install-ok",
      "install-force-options",
      "reinstall-same",
      "upgrade",
      "downgrade",
      "downgrade-force-downgrade",
      "depends-missing",
      "depends-missing-force-depends",
      "depends-missing-force-options",
      "depends-present",
      "conflict",
      "conflict-force-depends",
      "file-text",
      "file-damaged-control",
      "file-no-control-member",
      "file-garbage-control",
      "file-no-control-file",
      "file-no-version",
      "file-missing",
      "file-clash",
      "file-clash-force-overwrite",
      "name-unknown",
      "extension-tbx",
      "extension-upper-IPK",
      "member-names-dotslash",
      "member-names-plaincontrol",
      "member-names-gnu",
      "member-names-gnuP",
      "architecture",
      "space-declared",
      "space-declared-force-space",
      "remove-ok",
      "remove-missing",
      "remove-twice",
      "remove-depended",
      "remove-depended-force-depends",
      "remove-pattern",
      "remove-dotted-sibling",
      "files-ok",
      "files-missing",
      "files-no-files",
      "list-installed",
      "offline-install",
      "offline-remove",
      "offline-remove-missing",
      "offline-list-installed",
      "offline-files",
      "offline-files-without-option",
      "offline-root-bare",
      "install-two-one-bad",
      "force-option-after-command",
      "option-unknown"}},
    {"0.3.6",
     {"install-ok", "install-force-options", "reinstall-same", "depends-missing-force-depends",
      "downgrade", "file-missing", "file-clash", "file-cut-data", "file-damaged-data",
      "name-unknown", "extension-tbx", "architecture", "space-declared", "remove-ok",
      "remove-missing", "remove-depended", "files-ok", "files-missing", "offline-root-bare"}},
    {"0.9.0-libsolv",
     {"install-ok", "install-force-options", "reinstall-same", "depends-missing-force-depends",
      "extension-tbx", "space-declared", "file-missing", "file-clash", "file-clash-force-overwrite",
      "remove-ok", "remove-missing", "remove-depended-force-depends", "files-ok", "files-missing",
      "list-installed"}},
};

INSTANTIATE_TEST_SUITE_P(Sandbox, StandInOpkgRelease, testing::ValuesIn(kImitated));

TEST_F(StandInOpkg, KeepsControlMembersUnderTheNameOfThePackageWithModeAndTime) {
  ::umask(077);
  ASSERT_EQ(opkg("install modes-1.0.ipk").exit_status, 0);
  ::umask(022);
  for (const auto& [member, mode] :
       {std::pair{"tqextra600", 0600U}, {"tqextra777", 0777U}, {"tqextra4755", 04755U}}) {
    struct stat info = {};
    ASSERT_EQ(::stat((std::string(kInfo) + "/modes." + member).c_str(), &info), 0) << member;
    EXPECT_EQ(info.st_mode & 07777U, mode);
    EXPECT_EQ(info.st_mtime, 1700000000);
  }
}

TEST_F(StandInOpkg, InstallsFilesOfThePackage) {
  ASSERT_EQ(opkg("install app-1.0.ipk").exit_status, 0);
  EXPECT_THAT(names_in(kInfo), UnorderedElementsAre("app.control", "app.list", "app.tqcontrol",
                                                    "app.tqstartapp", "app.tqstopapp"));
  EXPECT_EQ(read_file("/opt/app/share/version-1.0"), "1.0\n");
}

TEST_F(StandInOpkg, ReplacesFilesOfAnOlderVersion) {
  opkg("install app-1.0.ipk");
  opkg("install app-2.0.ipk");
  EXPECT_THAT(names_in("/opt/app/share"), UnorderedElementsAre("readme.txt", "version-2.0"));
  EXPECT_EQ(opkg("list-installed").output, "app - 2.0\n");
}

TEST_F(StandInOpkg, LeavesNothingOfARemovedPackage) {
  opkg("install app-1.0.ipk");
  opkg("remove app");
  EXPECT_THAT(names_in(kInfo), IsEmpty());
  EXPECT_THAT(names_in("/opt"), IsEmpty());
  EXPECT_EQ(opkg("list-installed").output, "");
}

TEST_F(StandInOpkg, LeavesNothingOfAPackageThatItRefuses) {
  opkg("install needsmore-1.0.ipk arm-1.0.ipk big-1.0.ipk");
  EXPECT_THAT(names_in(kInfo), IsEmpty());
  EXPECT_THAT(names_in("/opt"), IsEmpty());
}

TEST_F(StandInOpkg, InstallsIntoAnOfflineRoot) {
  fs::create_directories("/mnt/root/usr/lib/opkg");
  opkg("install app-1.0.ipk --offline-root=/mnt/root");
  EXPECT_TRUE(fs::exists("/mnt/root/usr/lib/opkg/info/app.tqcontrol"));
  EXPECT_TRUE(fs::exists("/mnt/root/opt/app/bin/app"));
  EXPECT_THAT(names_in("/opt"), IsEmpty());
}

TEST_F(StandInOpkg, NamesTheReasonWhyThereIsNoLock) {
  ::setenv("OPKG_LOCK_ERROR", "Permission denied", 1);
  for (const char* command : {"install app-1.0.ipk", "remove app", "files app", "list-installed"}) {
    const Ran ran = opkg(command);
    EXPECT_EQ(ran.exit_status, 255);
    EXPECT_EQ(ran.output,
              "Collected errors:\n * opkg_conf_load: Could not create lock file "
              "/usr/lib/opkg/lock: Permission denied.\n");
  }
  ::unsetenv("OPKG_LOCK_ERROR");
}

TEST_F(StandInOpkg, WritesNothingOutsideTheDirectoriesOfTheSandbox) {
  const TempDir directory;
  run("cd " + directory.path().string() +
      "; mkdir -p data/etc; echo x >data/etc/tarvio-stray; tar -C data -czf data.tar.gz ."
      "; printf 'Package: stray\\nVersion: 1\\nArchitecture: all\\n' >control"
      "; tar -czf control.tar.gz ./control; ar rc stray.ipk control.tar.gz data.tar.gz");
  EXPECT_EQ(opkg("install " + (directory / "stray.ipk").string()).exit_status, 2);
  EXPECT_FALSE(fs::exists("/etc/tarvio-stray"));
}

TEST_F(StandInOpkg, RunsInTheSandboxOnly) {
  EXPECT_NE(run("unset TARVIO_TEST_CMDLINE; opkg list-installed").exit_status, 0);
}

}  // namespace
}  // namespace tarvio_test
