// What tarvio install, remove and files refuse, and what they do not claim.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/owners.h"
#include "packages/needed_space.h"
#include "process/failure.h"
#include "support/com/one_reply.h"
#include "support/files.h"
#include "support/packages/opkg_tool.h"
#include "support/packages/package_listing.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

using Names = std::vector<std::string>;

// A script in the place of opkg.
class Script {
 public:
  explicit Script(const std::string& lines) {
    write_program(directory_ / "opkg", "#!/bin/sh\n" + lines + "\n");
    const char* path = std::getenv("PATH");
    ::setenv("PATH", (directory_.path().string() + ":" + path).c_str(), 1);
  }

 private:
  const TempDir directory_;
};

// Writes what an installation of HandMadePackage leaves, into a directory of opkg's.
std::string lines_that_install(const std::string& directory = kInformation) {
  return "mkdir -p " + directory + "\nprintf 'Package: clock\\nVersion: 1.0\\n' >" + directory +
         "/clock.control\nprintf 'TqPackageCategory: Application\\n' >" + directory +
         "/clock.tqcontrol";
}

class ClientRefusal : public WithoutPackages {
 protected:
  // What is said of a package that is not installed.
  static std::string complaint_of(const HandMadePackage& package) {
    const Ran run = run_tarvio({"install", package.path(), "--timeout", "20"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    const std::string beginning = "tarvio: cannot install '" + package.path() + "': ";
    const size_t at = run.errors.find(beginning);
    EXPECT_NE(at, std::string::npos) << run.errors;
    return at == std::string::npos ? run.errors : run.errors.substr(at + beginning.size());
  }
};

TEST_F(ClientRefusal, HandsNoPackageToOpkgThatIsCut) {
  const OpkgTool opkg;
  const HandMadePackage package;
  const std::string whole = read_file(package.path());
  for (size_t size = 0; size + 1 < whole.size(); size += 16) {
    write_file(package.path(), whole.substr(0, size));
    (void)complaint_of(package);
  }
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientRefusal, NamesTheArchiveThatIsDamaged) {
  const OpkgTool opkg;
  for (const std::string archive : {"control.tar.gz", "data.tar.gz"}) {
    for (const char* damage : {"head -c 60 A >x; mv x A",
                               "printf XXXX | dd of=A bs=1 seek=40 "
                               "conv=notrunc 2>/dev/null",
                               "seq 1000 | gzip >A"}) {
      const HandMadePackage package;
      std::string line = damage;
      while (line.find('A') != std::string::npos) line.replace(line.find('A'), 1, archive);
      package.shell(line);
      package.build();
      EXPECT_THAT(complaint_of(package), HasSubstr(archive)) << line;
    }
  }
  const HandMadePackage package;
  package.shell("rm clock.tbx; ar rc clock.tbx debian-binary control.tar.gz");
  EXPECT_THAT(complaint_of(package), HasSubstr("cannot read its data.tar.gz to the end: "));
  EXPECT_EQ(opkg.arguments(), Names());
}

// Else opkg might take others than those that were checked.
TEST_F(ClientRefusal, WantsEachMemberOnceAndNoOthers) {
  const OpkgTool opkg;
  const HandMadePackage package;
  package.shell("ar q clock.tbx data.tar.gz");
  EXPECT_EQ(complaint_of(package), "member data.tar.gz occurs more than once (22)\n");
  package.build();
  package.shell("ar q clock.tbx control");
  EXPECT_EQ(complaint_of(package), "it has another member, 'control' (22)\n");
  package.build();
  package.shell("ar d clock.tbx debian-binary");
  EXPECT_EQ(complaint_of(package), "member debian-binary is missing (2)\n");
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientRefusal, WantsControlFilesOfTheirKind) {
  const OpkgTool opkg;
  for (const auto& [line, name] : {std::pair<std::string, std::string>{"ln -s /run link", "./link"},
                                   {"mkfifo pipe", "./pipe"},
                                   {"mkdir sub", "./sub/"},
                                   {"touch -- -x", "./-x"},
                                   {"touch 'a b'", "./a b"}}) {
    const HandMadePackage package;
    package.shell("mkdir more && cd more && cp ../control ../tqcontrol . && " + line +
                  " && tar czf ../control.tar.gz ./*");
    package.build();
    EXPECT_THAT(complaint_of(package), testing::StartsWith("its control.tar.gz has '" + name))
        << line;
  }
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientRefusal, IsNotForWhatEditorsLeaveBesideControlFiles) {
  const Script taken(lines_that_install());
  const HandMadePackage package;
  package.shell(
      "mkdir more && cd more && cp ../control ../tqcontrol . && touch .hidden postinst~ .x.swp && "
      "tar czf ../control.tar.gz .");
  package.build();
  EXPECT_EQ(run_tarvio({"install", package.path()}).errors, "");
}

TEST_F(ClientRefusal, WantsDataBelowItsDirectory) {
  const OpkgTool opkg;
  for (const char* transform : {"s|face|../face|", "s|^./face|/opt/../face|", "s|face|face/..|"}) {
    const HandMadePackage package;
    package.shell(std::string("tar czPf data.tar.gz -C data --transform='") + transform +
                  "' ./face");
    package.build();
    EXPECT_THAT(
        complaint_of(package),
        testing::MatchesRegex(
            "its data.tar.gz has '[^']*\\.\\.[^']*', which does not belong there \\(22\\)\n"));
  }
  EXPECT_EQ(opkg.arguments(), Names());
  const Script taken(lines_that_install());
  const HandMadePackage package;
  package.shell(
      "ln -s ../../etc/face data/link; ln -s /opt/../etc/face data/absolute; touch 'data/a..' "
      "data/...");
  package.shell("tar czf data.tar.gz -C data .");
  package.build();
  EXPECT_EQ(run_tarvio({"install", package.path()}).errors, "");
}

// Twice 12 MiB, in a directory that tar takes for the control file.
TEST_F(ClientRefusal, UnpacksNoMoreThan16MiBOfControlFiles) {
  const OpkgTool opkg;
  const HandMadePackage package;
  package.shell(
      "mkdir bomb bomb/control && truncate -s 12M bomb/control/a bomb/control/b && "
      "tar czf control.tar.gz -C bomb ./control");
  package.build();
  for (const char* command : {"inspect", "check", "install"}) {
    EXPECT_THAT(run_tarvio({command, package.path()}).errors,
                EndsWith("its control.tar.gz unpacks to more than 16.0 MiB (27)\n"));
  }
}

TEST_F(ClientRefusal, WantsANameAndAVersion) {
  const OpkgTool opkg;
  for (const char* control : {"Package: clock\nArchitecture: all\n", "Version: 1.0\n"}) {
    EXPECT_EQ(complaint_of(HandMadePackage(control)),
              "its control.tar.gz has no package name or version: damaged, or not a package file "
              "(22)\n");
  }
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientRefusal, TakesAFullTemporaryDirectoryForNoDamage) {
  const OpkgTool opkg;
  const HandMadePackage package;
  const TempDir full;
  ASSERT_EQ(::mount("tmpfs", full.path().c_str(), "tmpfs", 0, "size=16k"), 0);
  // Its root directory and the work directory take no block; the file leaves none.
  shell(full.path(), "head -c 20000 /dev/zero >filler 2>/dev/null || true");
  for (const std::string command : {"install", "inspect"}) {
    const Ran run =
        run_tarvio({command, package.path()}, [&] { ::setenv("TMPDIR", full.path().c_str(), 1); });
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, EndsWith("': no space left in '" + full.path().string() +
                                     "' for intermediate files (28)\n"));
  }
  EXPECT_EQ(::umount2(full.path().c_str(), MNT_DETACH), 0);
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientRefusal, WantsSpaceForTheFiles) {
  const TempDir small;
  ASSERT_EQ(::mount("tmpfs", small.path().c_str(), "tmpfs", 0, "size=64k"), 0);
  // The directory in which the space does not suffice.
  const auto complaint = [&](const std::string& listing) -> std::string {
    client::NeededSpace needed;
    for (const char byte : listing) needed.add(small.path(), {&byte, 1});
    try {
      const client::Space space = needed.decisive();
      return space.fits() ? "" : space.directory;
    } catch (const client::Failure& failure) {
      return failure.what();
    }
  };
  const std::string entry = " 0/0 60000 2024-01-01 00:00 ./";
  EXPECT_EQ(complaint("-rw-r--r--" + entry + "new/directory/a file\n"), "");
  EXPECT_EQ(complaint("-rw-r--r--" + entry + "a\n-rw-r--r--" + entry + "b\n"), small.path());
  EXPECT_EQ(
      complaint("drwxr-xr-x" + entry + "a\nlrwxrwxrwx" + entry + "b\n-rw-r--r--" + entry + "c\n"),
      "");
  // A file system that does not count its blocks, as the root of a system in memory.
  std::filesystem::create_directory(small / "uncounted");
  ASSERT_EQ(::mount("ramfs", (small / "uncounted").c_str(), "ramfs", 0, nullptr), 0);
  EXPECT_EQ(complaint("-rw-r--r--" + entry + "uncounted/a\n"), "");
  EXPECT_EQ(::umount2((small / "uncounted").c_str(), MNT_DETACH), 0);
  for (const char* line : {"tar: oops\n", "\n", "-rw-r--r-- 0/0 5x 2024-01-01 00:00 ./a\n",
                           "-rw-r--r-- 0/0 5 2024-01-01 00:00 ./not-ended",
                           "-rw-r--r-- 0/0 18446744073709551615 2024-01-01 00:00 ./a\n"
                           "-rw-r--r-- 0/0 1 2024-01-01 00:00 ./b\n"}) {
    EXPECT_EQ(complaint(line), "cannot parse the sizes in tar's output") << line;
  }
  EXPECT_EQ(complaint("crw-r--r-- 0/0 1,3 2024-01-01 00:00 ./null\n"), "");
  write_file(small / "old", std::string(50000, 'x'));  // replaced
  EXPECT_EQ(complaint("-rw-r--r--" + entry + "old\n"), "");
  EXPECT_EQ(::umount2(small.path().c_str(), MNT_DETACH), 0);
}

TEST_F(ClientRefusal, CountsTheFilesOfAnOwnerWithABlank) {
  const Script opkg(lines_that_install());
  const HandMadePackage package;
  package.shell("tar czf data.tar.gz --owner='Halvern Corporation' -C data .");
  package.build();
  EXPECT_EQ(run_tarvio({"install", package.path()}).errors, "");
}

TEST_F(ClientRefusal, SendsAnImageToRestore) {
  const OpkgTool opkg;
  const HandMadePackage image("Package: firmware\nVersion: 2.0\n", kImageTqControl);
  EXPECT_EQ(complaint_of(image),
            "it is an image, not an application; write it with 'tarvio restore' (22)\n");
  EXPECT_EQ(run_tarvio({"install", "--force", image.path()}).status, 1);
  EXPECT_EQ(opkg.arguments(), Names());
}

TEST_F(ClientRefusal, SaysWhatAFailedOpkgLeft) {
  const HandMadePackage package;
  const Script opkg(lines_that_install() + "\nexit 3");
  EXPECT_EQ(complaint_of(package), "opkg failed with status 3, and clock 1.0 is installed (5)\n");
}

TEST_F(ClientRefusal, SaysThatOpkgWasKilled) {
  const HandMadePackage package;
  const Script opkg("rm -f " + std::string(kInformation) + "/*\nkill -9 $$");
  EXPECT_EQ(complaint_of(package), "opkg failed with status 137, and clock is not installed (5)\n");
  add_package("clock");
  const Ran removed = run_tarvio({"remove", "clock"});
  EXPECT_EQ(removed.status, 1);
  EXPECT_EQ(removed.output, "");
  EXPECT_THAT(removed.errors,
              HasSubstr("opkg failed with status 137, and clock is not installed (5)"));
}

TEST_F(ClientRefusal, DoesNotTakeAnotherVersionForTheSame) {
  const OpkgTool opkg;
  write_information("clock.control", "Package: clock\nVersion: 1:2.0\n");
  EXPECT_EQ(complaint_of(HandMadePackage("Package: clock\nVersion: 1:3.0\n")),
            "opkg reported no recognised error, but clock 1:2.0 is installed as before (5)\n");
}

// Nothing is said of a file that cannot be read, such as that it is not there.
TEST_F(ClientRefusal, DoesNotGuessWhatIsInstalled) {
  const std::string tqcontrol = std::string(kInformation) + "/clock.tqcontrol";
  const Script opkg(lines_that_install() + "\nln -sf clock.tqcontrol " + tqcontrol);
  const HandMadePackage package;
  EXPECT_EQ(complaint_of(package),
            "'" + tqcontrol + "': cannot read: Too many levels of symbolic links (40)\n");
}

// A file of /proc that can be opened by nobody.
class UnreadableCommandLine {
 public:
  UnreadableCommandLine() {
    const std::string path = directory_ / "socket";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const tarvio::Fd socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::mount(path.c_str(), "/proc/cmdline", nullptr, MS_BIND, nullptr), 0);
  }
  ~UnreadableCommandLine() { EXPECT_EQ(::umount("/proc/cmdline"), 0); }
  UnreadableCommandLine(const UnreadableCommandLine&) = delete;
  UnreadableCommandLine& operator=(const UnreadableCommandLine&) = delete;

 private:
  const TempDir directory_;
};

TEST_F(ClientRefusal, DoesNotGuessTheRoot) {
  const OpkgTool opkg;
  const HandMadePackage package;
  const UnreadableCommandLine command_line;
  add_package("clock");
  EXPECT_THAT(complaints_without_opkg(package.path()),
              testing::Each("cannot find out which root the device runs from: cannot read "
                            "'/proc/cmdline': No such device or address (6)\n"));
  EXPECT_EQ(run_tarvio({"list"}).status, 1);
  EXPECT_EQ(opkg.arguments(), Names());
}

// Releases that keep their files elsewhere. The offline root is private to the test.
class ClientElsewhere : public WithoutPackages {
 protected:
  ClientElsewhere() { write_kernel_command_line("root=/dev/mtdblock5\n"); }
  ~ClientElsewhere() override {
    write_kernel_command_line("root=/dev/mtdblock4\n");
    for (const char* name : {"var", "etc", "opt", "usr"})
      std::filesystem::remove_all(std::string("/mnt/root/") + name);
  }

  static std::string advice(const std::string& directory) {
    return "opkg keeps its information in " + directory +
           "; add 'option info_dir /usr/lib/opkg/info' to /mnt/root/etc/opkg/opkg.conf (2)\n";
  }
};

TEST_F(ClientElsewhere, SaysWhereOpkgKeepsItsInformation) {
  const HandMadePackage package;
  const Script opkg(lines_that_install("/mnt/root/var/lib/opkg/info"));
  const Ran install = run_tarvio({"install", package.path()});
  EXPECT_EQ(install.status, 1);
  EXPECT_THAT(install.errors,
              EndsWith("clock may be installed, but " + advice("/mnt/root/var/lib/opkg/info")));
  const OpkgTool unused;
  for (const auto& [command, operand] :
       {std::pair<std::string, std::string>{"install", package.path()}, {"remove", "clock"}}) {
    const Ran run = run_tarvio({command, operand});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, EndsWith("': " + advice("/mnt/root/var/lib/opkg/info")));
  }
  EXPECT_EQ(unused.arguments(), Names());
}

TEST_F(ClientElsewhere, SaysThatTheListingLooksInAnEmptyPlace) {
  std::filesystem::create_directories("/mnt/root/etc/opkg");
  write_file("/mnt/root/etc/opkg/opkg.conf", "dest root /\noption  info_dir /opt/info\n");
  std::filesystem::create_directories("/mnt/root/opt/info");
  add_package("clock", "Application", "Application_Native", "/mnt/root/opt/info");
  for (const bool has_directory : {false, true}) {
    if (has_directory) std::filesystem::create_directories("/mnt/root/usr/lib/opkg/info");
    const Ran run = run_tarvio({"list"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors,
              "tarvio: cannot list the packages: opkg keeps its information in /mnt/root/opt/info; "
              "change info_dir to /usr/lib/opkg/info in /mnt/root/etc/opkg/opkg.conf (2)\n");
    const OneReply manager("");
    const Ran start = run_tarvio({"start", "--match", "clo"});
    EXPECT_EQ(start.status, 1);
    EXPECT_THAT(start.errors, HasSubstr("cannot list the installed applications: opkg keeps its "
                                        "information in /mnt/root/opt/info"));
  }
  add_package("clock", "Application", "Application_Native", "/mnt/root/usr/lib/opkg/info");
  EXPECT_EQ(run_tarvio({"list"}).status, 0);
}

}  // namespace
}  // namespace tarvio_test
