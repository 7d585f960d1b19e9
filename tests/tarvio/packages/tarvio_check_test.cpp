// tarvio check.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "packages/needed_space.h"
#include "process/failure.h"
#include "support/files.h"
#include "support/packages/opkg_tool.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

using client::NeededSpace;
using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

using Names = std::vector<std::string>;

// Of all files in a listing that comes in pieces of that size; none when it cannot be parsed.
std::optional<uint64_t> sum_of(const std::string& listing, size_t piece_size) {
  NeededSpace space;
  for (size_t at = 0; at < listing.size(); at += piece_size) {
    space.add("/", listing.substr(at, piece_size));
  }
  try {
    (void)space.decisive();
  } catch (const client::Failure&) {
    return std::nullopt;
  }
  return space.listed_bytes();
}

TEST(ClientPackageSize, IsTheSumOfAListing) {
  const std::string listing =
      "drwxr-xr-x 0/0               0 2024-01-01 00:00 ./\n"
      "-rw-r--r-- 0/0            3000 2024-01-01 00:00 ./face\n"
      "crw-r--r-- 0/0             1,3 2024-01-01 00:00 ./null\n"
      "-rw-r--r-- 0/0      3221225472 2024-01-01 00:00 ./" +
      std::string(9000, 'x') + "\n";
  for (const size_t piece_size : {size_t{1}, size_t{7}, size_t{100}, size_t{100000}}) {
    EXPECT_EQ(sum_of(listing, piece_size), 3221228472U);
  }
  EXPECT_EQ(sum_of("", 1), 0U);
}

TEST(ClientPackageSize, IsNotTakenFromOtherLines) {
  for (const char* text : {"tar: oops\n", "\n", "-rw-r--r-- 0/0 -5 x\n", "-rw-r--r-- 0/0 5x x\n",
                           "-rw-r--r-- 0/0 5 not ended", "a b 18446744073709551615 x\na b 1 x\n"}) {
    EXPECT_EQ(sum_of(text, 100), std::nullopt) << text;
  }
}

// An installed root on a file system of its own.
class InstalledRoot {
 public:
  explicit InstalledRoot(const std::string& size) {
    write_kernel_command_line("root=/dev/mtdblock5\n");
    mount("/mnt/root", size);
  }
  ~InstalledRoot() {
    for (const std::string& path : {std::string("/mnt/root/opt"), std::string("/mnt/root")}) {
      ::umount2(path.c_str(), MNT_DETACH);
    }
    write_kernel_command_line("root=/dev/mtdblock4\n");
  }
  InstalledRoot(const InstalledRoot&) = delete;
  InstalledRoot& operator=(const InstalledRoot&) = delete;

  static void mount(const std::string& path, const std::string& size) {
    std::filesystem::create_directories(path);
    EXPECT_EQ(::mount("root", path.c_str(), "tmpfs", 0, ("size=" + size).c_str()), 0);
  }
};

void grow(const HandMadePackage& package) {
  package.shell("printf %5000s >data/face; tar czf data.tar.gz -C data .");
  package.build();
}

TEST(ClientCheck, SaysWhetherAPackageFits) {
  const HandMadePackage package;
  const InstalledRoot root("1g");
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, package.path() + " fits: needs 3.1 KiB, free: 1.0 GiB\n");
  EXPECT_EQ(run.errors, "");
}

TEST(ClientCheck, SaysThatAPackageDoesNotFit) {
  const HandMadePackage package;
  grow(package);
  const InstalledRoot root("4k");
  const Ran run = run_tarvio({"check", package.path(), "/nowhere", package.path()});
  EXPECT_EQ(run.status, 1);
  const std::string line =
      package.path() + " does not fit in '/mnt/root': needs 5.0 KiB, free: 4.0 KiB\n";
  EXPECT_EQ(run.output, line + line);
  EXPECT_EQ(run.errors, "tarvio: cannot check '/nowhere': No such file or directory (2)\n");
}

TEST(ClientCheck, IsJsonForScripts) {
  const HandMadePackage package;
  grow(package);
  const InstalledRoot root("4k");
  const json checked = json::parse(run_tarvio({"check", "--json", package.path()}).output);
  const uintmax_t control = std::filesystem::file_size(package / "control") +
                            std::filesystem::file_size(package / "tqcontrol");
  EXPECT_EQ(checked, json::array({{{"file", package.path()},
                                   {"code", 28},
                                   {"message", "it does not fit"},
                                   {"fits", false},
                                   {"directory", "/mnt/root"},
                                   {"needed_bytes", control + 5000},
                                   {"control_bytes", control},
                                   {"data_bytes", 5000},
                                   {"free_bytes", 4096}}}));
}

TEST(ClientCheck, KnowsMoreFreeSpaceThan32BitsCount) {
  const HandMadePackage package;
  const InstalledRoot root("3g");
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, package.path() + " fits: needs 3.1 KiB, free: 3.0 GiB\n");
  EXPECT_EQ(run.errors, "");
}

// Each file counts where it goes, and not what it replaces; install says the same.
TEST(ClientCheck, JudgesTheSpaceAsInstallDoes) {
  const HandMadePackage package;
  package.shell("mkdir data/opt; printf %5000s >data/opt/face; tar czf data.tar.gz -C data .");
  package.build();
  const OpkgTool opkg;
  const InstalledRoot root("1g");
  InstalledRoot::mount("/mnt/root/opt", "4k");
  EXPECT_EQ(run_tarvio({"check", package.path()}).output,
            package.path() + " does not fit in '/mnt/root/opt': needs 4.9 KiB, free: 4.0 KiB\n");
  EXPECT_EQ(run_tarvio({"install", package.path()}).errors,
            "tarvio: cannot install '" + package.path() +
                "': not enough space in '/mnt/root/opt': 4.9 KiB needed, 4.0 KiB free (28)\n");
  EXPECT_EQ(opkg.arguments(), Names());
  write_file("/mnt/root/opt/face", std::string(4000, 'x'));
  EXPECT_EQ(run_tarvio({"check", package.path()}).output,
            package.path() + " does not fit in '/mnt/root/opt': needs 1000 bytes, free: 0 bytes\n");
}

TEST(ClientCheck, KnowsNoFreeSpaceOfARootInMemory) {
  const HandMadePackage package;
  const InstalledRoot root("4k");
  ASSERT_EQ(::mount("memory", "/mnt/root", "ramfs", 0, nullptr), 0);
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, package.path() + " fits: needs 3.1 KiB\n");
  EXPECT_EQ(json::parse(run_tarvio({"check", "--json", package.path()}).output)[0]["free_bytes"],
            nullptr);
  EXPECT_EQ(::umount2("/mnt/root", MNT_DETACH), 0);
}

// The tools do not say so: what they could not write whole is damaged to those that come after.
TEST(ClientCheck, SaysThatTheTemporaryDirectoryIsFull) {
  const HandMadePackage package;
  const PrivateTemporaryDirectory temporary;
  const std::string directory = temporary.path();
  const std::string complaint = "'" + package.path() + "': no space left in '" + directory +
                                "' for intermediate files: cannot unpack its control.tar.gz: ";
  for (const std::string command : {"check", "inspect"}) {
    ASSERT_EQ(::mount("full", directory.c_str(), "tmpfs", 0, "size=4k"), 0);
    const Ran run = run_tarvio({command, package.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, StartsWith("tarvio: cannot " + command + " " + complaint));
    EXPECT_THAT(run.errors, EndsWith(" (28)\n"));
    // A tool's own child may still be there.
    EXPECT_EQ(::umount2(directory.c_str(), MNT_DETACH), 0);
  }
}

TEST(ClientCheck, IsAboutTheFileSystemThatMostFilesGoTo) {
  const HandMadePackage package;
  package.shell("mkdir data/opt; mv data/face data/opt; tar czf data.tar.gz -C data .");
  package.build();
  const PrivateTemporaryDirectory temporary;
  const json checked = json::parse(run_tarvio({"check", "--json", package.path()}).output);
  EXPECT_EQ(checked[0]["fits"], true);
  EXPECT_EQ(checked[0]["directory"], "/opt");  // the control files go to another one
  EXPECT_EQ(checked[0]["needed_bytes"], 3000);
  EXPECT_EQ(temporary.entries(), Names());
}

// What is said of a package that cannot be checked. Nothing is left of the attempt.
std::string complaint_of(const HandMadePackage& package) {
  const InstalledRoot root("1g");
  const PrivateTemporaryDirectory temporary;
  const Ran run = run_tarvio({"check", package.path(), "--timeout", "20"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(temporary.entries(), Names());
  const std::string beginning = "tarvio: cannot check '" + package.path() + "': ";
  EXPECT_EQ(run.errors.substr(0, beginning.size()), beginning);
  return run.errors.substr(std::min(run.errors.size(), beginning.size()));
}

TEST(ClientCheckOfAHostilePackage, SaysThatItIsNotOne) {
  const HandMadePackage package;
  package.shell("echo text >clock.tbx");
  EXPECT_EQ(complaint_of(package),
            "it has no control.tar.gz: damaged, or not a package file (22)\n");
  package.shell("rm clock.tbx; ar rc clock.tbx debian-binary control.tar.gz");
  EXPECT_THAT(complaint_of(package), StartsWith("cannot read its data.tar.gz to the end: "));
  package.shell("head -c 100 data.tar.gz >x; mv x data.tar.gz");
  package.build();
  EXPECT_THAT(
      complaint_of(package),
      StartsWith("cannot read its data.tar.gz to the end: sh failed with status 2: gzip: "));
}

TEST(ClientCheckOfAHostilePackage, NeverHangsOrCrashesWhereverItIsCut) {
  const HandMadePackage package;
  const std::string whole = read_file(package.path());
  const PrivateTemporaryDirectory temporary;
  for (size_t size = 0; size < whole.size(); size += 32) {
    write_file(package.path(), whole.substr(0, size));
    EXPECT_EQ(run_tarvio({"check", package.path()}).status, 1) << size;
    EXPECT_EQ(temporary.entries(), Names()) << size;
  }
}

TEST(ClientCheckOfAHostilePackage, WritesNothingOutsideItsDirectory) {
  const HandMadePackage package;
  package.shell(
      "echo evil >evil; mkdir -p a/b; cp evil a/evil; cd a/b; ar rcP ../../clock.tbx ../evil "
      "/etc/hostname; grep -aq '[.][.]/evil' ../../clock.tbx");
  const PrivateTemporaryDirectory temporary;
  const std::filesystem::path below = temporary.path() / "below";
  std::filesystem::create_directory(below);
  ::setenv("TMPDIR", below.c_str(), 1);
  // They are not unpacked at all.
  EXPECT_THAT(run_tarvio({"check", package.path()}).errors, HasSubstr("it has another member, '"));
  EXPECT_TRUE(std::filesystem::is_empty(below));
  EXPECT_EQ(temporary.entries(), Names{"below"});
}

TEST(ClientCheckOfAHostilePackage, RefusesMembersThatNameOtherPlaces) {
  const HandMadePackage package;
  package.shell("tar czPf data.tar.gz /etc/hostname ../../../../etc/hostname");
  package.build();
  EXPECT_THAT(complaint_of(package), StartsWith("its data.tar.gz has '../../../../etc/hostname"));
}

TEST(ClientCheckOfAHostilePackage, MeasuresWhatItNeverUnpacks) {
  const HandMadePackage package;
  package.shell("truncate -s 2G hole; tar czSf data.tar.gz ./hole; rm hole");
  package.build();
  const InstalledRoot root("1g");
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output,
              HasSubstr(" does not fit in '/mnt/root': needs 2.0 GiB, free: 1.0 GiB\n"));
}

// To its end it would be read for hours; here that would show that it has none.
TEST(ClientCheckOfAHostilePackage, ReadsNoMoreOfWhatCannotFitByFar) {
  const HandMadePackage package;
  package.shell("truncate -s 1T hole; tar c ./hole | head -c 512 | gzip >data.tar.gz; rm hole");
  package.build();
  const InstalledRoot root("1g");
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "");
  EXPECT_THAT(run.output,
              HasSubstr(" does not fit in '/mnt/root': needs 1.0 TiB, free: 1.0 GiB\n"));
}

}  // namespace
}  // namespace tarvio_test
