// tarvio check.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "packages/package_size.h"
#include "support/files.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

using client::free_bytes_in;
using client::ListingSum;
using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

using Names = std::vector<std::string>;

std::optional<uint64_t> sum_of(const std::string& text, size_t piece_size) {
  ListingSum sum;
  for (size_t at = 0; at < text.size(); at += piece_size) sum.add(text.substr(at, piece_size));
  return sum.finish();
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

TEST(ClientPackageSize, IsComparedWithTheFirstFileSystem) {
  const std::string heading = "Filesystem 1024-blocks Used Available Capacity Mounted on\n";
  EXPECT_EQ(free_bytes_in(heading + "/dev/root 100 90 5000000 10% /\ntmpfs 1 1 1 1% /run\n"),
            5120000000U);
  EXPECT_EQ(free_bytes_in(heading), std::nullopt);
  EXPECT_EQ(free_bytes_in(heading + "/dev/root 100\n"), std::nullopt);
  EXPECT_EQ(free_bytes_in(""), std::nullopt);
}

// A df of a number of KiB, first on PATH.
class FreeSpace {
 public:
  explicit FreeSpace(const std::string& kibibytes) {
    write_program(tools_ / "df",
                  "#!/bin/sh\necho 'Filesystem 1024-blocks Used Available Capacity Mounted on'\n"
                  "echo '/dev/root 9000000000 1 " +
                      kibibytes + " 1% /'\n");
    ::setenv("PATH", (tools_.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  }

 private:
  const TempDir tools_;
};

TEST(ClientCheck, SaysWhetherAPackageFits) {
  const HandMadePackage package;
  const FreeSpace space("1048576");
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, package.path() + " fits: needs 3.1 KiB, free: 1.0 GiB\n");
  EXPECT_EQ(run.errors, "");
}

TEST(ClientCheck, SaysThatAPackageDoesNotFit) {
  const HandMadePackage package;
  const FreeSpace space("3");
  const Ran run = run_tarvio({"check", package.path(), "/nowhere", package.path()});
  EXPECT_EQ(run.status, 1);
  const std::string line = package.path() + " does not fit: needs 3.1 KiB, free: 3.0 KiB\n";
  EXPECT_EQ(run.output, line + line);
  EXPECT_EQ(run.errors, "tarvio: cannot check '/nowhere': No such file or directory (2)\n");
}

TEST(ClientCheck, IsJsonForScripts) {
  const HandMadePackage package;
  const FreeSpace space("3");
  const json checked = json::parse(run_tarvio({"check", "--json", package.path()}).output);
  const uintmax_t control = std::filesystem::file_size(package / "control") +
                            std::filesystem::file_size(package / "tqcontrol");
  EXPECT_EQ(checked, json::array({{{"file", package.path()},
                                   {"code", 28},
                                   {"message", "it does not fit"},
                                   {"fits", false},
                                   {"needed_bytes", control + 3000},
                                   {"control_bytes", control},
                                   {"data_bytes", 3000},
                                   {"free_bytes", 3072}}}));
}

TEST(ClientCheck, KnowsMoreFreeSpaceThan32BitsCount) {
  const HandMadePackage package;
  const FreeSpace space("3145728");  // 3 GiB
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, package.path() + " fits: needs 3.1 KiB, free: 3.0 GiB\n");
  EXPECT_EQ(run.errors, "");
}

// The tools do not say so: what they could not write whole is damaged to those that come after.
TEST(ClientCheck, SaysThatTheTemporaryDirectoryIsFull) {
  const HandMadePackage package;
  package.shell("head -c 300000 /dev/urandom >data/face; tar czf data.tar.gz -C data .");
  package.build();
  const PrivateTemporaryDirectory temporary;
  const std::string directory = temporary.path();
  const std::string complaint =
      "'" + package.path() + "': no space left in '" + directory + "' for intermediate files: ";
  for (const auto& [size, command, cause] :
       {std::tuple{"size=300k", "check", "tar failed with status 2: gzip: "},
        {"size=4k", "check", "ar failed with status 1: "},
        {"size=4k", "inspect", "cannot unpack its control.tar.gz: "}}) {
    ASSERT_EQ(::mount("full", directory.c_str(), "tmpfs", 0, size), 0);
    const Ran run = run_tarvio({command, package.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors,
                StartsWith(std::string("tarvio: cannot ") + command + " " + complaint + cause));
    EXPECT_THAT(run.errors, EndsWith(" (28)\n"));
    // A tool's own child may still be there.
    EXPECT_EQ(::umount2(directory.c_str(), MNT_DETACH), 0);
  }
}

TEST(ClientCheck, WorksWithTheRealTools) {
  const HandMadePackage package;
  const PrivateTemporaryDirectory temporary;
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_THAT(run.output, HasSubstr("needs 3.1 KiB, free: "));
  EXPECT_EQ(temporary.entries(), Names());
}

// What is said of a package that cannot be checked. Nothing is left of the attempt.
std::string complaint_of(const HandMadePackage& package) {
  const FreeSpace space("1048576");
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
  EXPECT_THAT(complaint_of(package), StartsWith("ar failed with status 1: "));
  package.shell("rm clock.tbx; ar rc clock.tbx debian-binary control.tar.gz");
  EXPECT_EQ(complaint_of(package), "it has no data.tar.gz: damaged, or not a package file (22)\n");
  package.shell("head -c 100 data.tar.gz >x; mv x data.tar.gz");
  package.build();
  EXPECT_THAT(complaint_of(package), StartsWith("tar failed with status 2: gzip: "));
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
  EXPECT_EQ(run_tarvio({"check", package.path()}).status, 1);
  EXPECT_TRUE(std::filesystem::is_empty(below));
  EXPECT_EQ(temporary.entries(), Names{"below"});
}

TEST(ClientCheckOfAHostilePackage, MeasuresMembersThatNameOtherPlaces) {
  const HandMadePackage package;
  package.shell("tar czPf data.tar.gz /etc/hostname ../../../../etc/hostname");
  package.build();
  EXPECT_THAT(run_tarvio({"check", package.path()}).output, HasSubstr("needs "));
}

TEST(ClientCheckOfAHostilePackage, MeasuresWhatItNeverUnpacks) {
  const HandMadePackage package;
  package.shell("truncate -s 2G hole; tar czSf data.tar.gz ./hole; rm hole");
  package.build();
  const FreeSpace space("1048576");
  const Ran run = run_tarvio({"check", package.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, HasSubstr(" does not fit: needs 2.0 GiB, free: 1.0 GiB\n"));
}

}  // namespace
}  // namespace tarvio_test
