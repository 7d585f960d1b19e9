// tarvio pack.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

Ran pack(const SampleDirectory& directory, const std::string& output) {
  return run_tarvio({"pack", directory.path(), "-o", output});
}

// What a command prints about a package file.
std::string listing_of(const SampleDirectory& directory, const std::string& command) {
  shell(directory.beside("").parent_path(), command + " >listing");
  return read_file(directory.beside("listing"));
}

TEST(ClientPack, MakesAPackageFile) {
  const SampleDirectory directory;
  const std::string file = directory.beside("clock.tbx");
  const Ran run = pack(directory, file);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  const std::string size = std::to_string(std::filesystem::file_size(file));
  EXPECT_EQ(run.output, "packed clock 1.0 into " + file + ", " + size + " bytes\n");
  EXPECT_EQ(listing_of(directory, "ar t clock.tbx"),
            "debian-binary\ncontrol.tar.gz\ndata.tar.gz\n");
  EXPECT_EQ(listing_of(directory, "ar p clock.tbx debian-binary"), "2.0\n");
  EXPECT_EQ(listing_of(directory, "ar p clock.tbx control.tar.gz | tar tz"),
            "./control\n./tqcontrol\n./tqstartapp\n");
  EXPECT_EQ(listing_of(directory, "ar p clock.tbx data.tar.gz | tar tz"),
            "./\n./opt/\n./opt/clock/\n./opt/clock/face\n");
}

TEST(ClientPack, MakesWhatInspectReads) {
  const SampleDirectory directory;
  const std::string file = directory.beside("clock.tbx");
  ASSERT_EQ(pack(directory, file).status, 0);
  const json inspected = json::parse(run_tarvio({"inspect", "--json", file}).output);
  EXPECT_EQ(inspected[0]["name"], "clock");
  EXPECT_EQ(inspected[0]["version"], "1.0");
  EXPECT_EQ(inspected[0]["subcategory"], "Application_Native");
}

TEST(ClientPack, GivesTheSameBytesAgain) {
  const SampleDirectory directory;
  ASSERT_EQ(pack(directory, directory.beside("one.tbx")).status, 0);
  shell(directory.path(),
        "touch -d 2020-02-02 data/opt control; chmod 664 control; chown -R 0:0 data");
  const Ran again = run_tarvio({"pack", directory.path(), "-o", directory.beside("two.tbx")}, [] {
    ::umask(077);
    ::setenv("TZ", "Asia/Tokyo", 1);
  });
  ASSERT_EQ(again.status, 0);
  EXPECT_EQ(read_file(directory.beside("one.tbx")), read_file(directory.beside("two.tbx")));
}

TEST(ClientPack, HasAnEmptyDataArchiveForADirectoryWithoutData) {
  const SampleDirectory directory;
  std::filesystem::remove_all(directory / "data");
  ASSERT_EQ(pack(directory, directory.beside("clock.tbx")).status, 0);
  EXPECT_EQ(listing_of(directory, "ar p clock.tbx data.tar.gz | tar tz"), "./\n");
}

TEST(ClientPack, TakesDirectoriesAndFilesOfAnyName) {
  const SampleDirectory directory;
  directory.write("data/opt/a b;c\n-d", "x");
  const std::string odd = directory.beside("$(odd) directory's");
  std::filesystem::rename(directory.path(), odd);
  const Ran run = run_tarvio({"pack", odd, "-o", directory.beside("a b.tbx")});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(std::filesystem::exists(directory.beside("a b.tbx")));
}

TEST(ClientPack, WritesIntoTheCurrentDirectory) {
  const SampleDirectory directory;
  const std::string place = directory.beside("").parent_path();
  const Ran run = run_tarvio({"pack", "clock", "--output=x.tbx", "--json"},
                             [&] { EXPECT_EQ(::chdir(place.c_str()), 0); });
  EXPECT_EQ(run.status, 0) << run.errors;
  const json result = json::parse(run.output);
  EXPECT_EQ(result, json({{"directory", "clock"},
                          {"code", 0},
                          {"message", "Success"},
                          {"file", "x.tbx"},
                          {"name", "clock"},
                          {"version", "1.0"},
                          {"size_bytes", std::filesystem::file_size(directory.beside("x.tbx"))}}));
}

TEST(ClientPack, WritesADirectoryWithoutDataIntoTheCurrentDirectory) {
  const SampleDirectory directory;
  std::filesystem::remove_all(directory / "data");
  const std::string place = directory.beside("").parent_path();
  const Ran run =
      run_tarvio({"pack", "clock", "-o", "x.tbx"}, [&] { EXPECT_EQ(::chdir(place.c_str()), 0); });
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(listing_of(directory, "ar p x.tbx data.tar.gz | tar tz"), "./\n");
}

// What is said of a directory that cannot be packed. Nothing is left of the attempt.
std::string complaint_of(const SampleDirectory& directory) {
  const PrivateTemporaryDirectory temporary;
  const std::filesystem::path place = directory.beside("out");
  std::filesystem::create_directory(place);
  write_file(place / "clock.tbx", "old");
  const Ran run = pack(directory, place / "clock.tbx");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(read_file(place / "clock.tbx"), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place), {}), 1);
  EXPECT_EQ(temporary.entries(), std::vector<std::string>());
  const std::string beginning = "tarvio: cannot pack '" + directory.path() + "': ";
  EXPECT_EQ(run.errors.substr(0, beginning.size()), beginning);
  return run.errors.substr(std::min(run.errors.size(), beginning.size()));
}

TEST(ClientPackOfAWrongDirectory, SaysThatItIsNotThere) {
  const SampleDirectory directory;
  std::filesystem::remove_all(directory.path());
  EXPECT_EQ(complaint_of(directory), "No such file or directory (2)\n");
}

TEST(ClientPackOfAWrongDirectory, SaysThatItIsAFile) {
  const SampleDirectory directory;
  std::filesystem::remove_all(directory.path());
  write_file(directory.path(), "");
  EXPECT_EQ(complaint_of(directory),
            "cannot read '" + directory.path() + "': Not a directory (20)\n");
}

TEST(ClientPackOfAWrongDirectory, SaysThatAControlFileIsMissing) {
  const SampleDirectory directory;
  std::filesystem::remove(directory / "control");
  EXPECT_EQ(complaint_of(directory), "control: cannot read: No such file or directory (2)\n");
}

TEST(ClientPackOfAWrongDirectory, SaysWhatIsWrongInAControlFile) {
  const SampleDirectory directory;
  directory.write("tqcontrol", "TqPackageCategory: Applications");
  EXPECT_EQ(complaint_of(directory), "tqcontrol: line 1 has no line end (22)\n");
}

TEST(ClientPackOfAWrongDirectory, SaysThatAProgramIsNotExecutable) {
  const SampleDirectory directory;
  directory.write("tqstopapp", "#!/bin/sh\n");
  EXPECT_EQ(complaint_of(directory), "tqstopapp is not executable (13)\n");
}

TEST(ClientPackOfAWrongDirectory, SaysThatItsDataWouldCloseTheDevice) {
  const SampleDirectory directory;
  for (const unsigned mode : {0700U, 0711U, 0750U}) {
    std::filesystem::permissions(directory / "data", std::filesystem::perms{mode});
    EXPECT_EQ(complaint_of(directory),
              "data/ becomes / on the device, so its mode must be 755 (13)\n");
    std::filesystem::remove_all(directory.beside("out"));
  }
  std::filesystem::permissions(directory / "data", std::filesystem::perms{0775});
  EXPECT_EQ(pack(directory, directory.beside("clock.tbx")).status, 0);
}

TEST(ClientPackOfAWrongDirectory, SaysWhatDoesNotBelongInIt) {
  const SampleDirectory directory;
  directory.write("tqstart", "#!/bin/sh\n");
  EXPECT_EQ(complaint_of(directory), "unexpected file 'tqstart' (22)\n");
}

TEST(ClientPackOfAWrongDirectory, RefusesALinkInPlaceOfAControlFile) {
  const SampleDirectory directory;
  std::filesystem::rename(directory / "control", directory.beside("elsewhere"));
  std::filesystem::create_symlink("../elsewhere", directory / "control");
  EXPECT_EQ(complaint_of(directory), "control is not a regular file (22)\n");
}

TEST(ClientPackOfAWrongDirectory, FindsAnotherVersionAtTheEndOfALongLine) {
  const SampleDirectory directory;
  // The library takes the line in pieces of 255 bytes, and the second one is a key.
  const std::string description = "Description: " + std::string(255 - 13, 'x') + "Version: 9\n";
  directory.write("control", kSampleControl + description);
  EXPECT_EQ(complaint_of(directory),
            "control: the library reads '9' for Version; is a line too long? (22)\n");
}

TEST(ClientPackOfAWrongDirectory, RefusesAFileThatIsTooLargeForAControlFile) {
  const SampleDirectory directory;
  directory.write("control", std::string(2 << 20, 'x'));
  EXPECT_EQ(complaint_of(directory), "control: larger than 1 MiB, so not a control file (27)\n");
}

TEST(ClientPack, NamesAToolThatIsMissing) {
  const SampleDirectory directory;
  for (const std::string tool : {"ar", "tar", "gzip"}) {
    const PathWithout path(tool);
    const Ran run = pack(directory, directory.beside("x.tbx"));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "tarvio: cannot pack '" + directory.path() + "': the tool " + tool +
                              " is missing; install it, or add its directory to PATH (2)\n");
  }
}

TEST(ClientPack, ReportsWhatAToolSaysFirst) {
  const SampleDirectory directory;
  const TempDir tools;
  write_program(tools / "gzip",
                "#!/bin/sh\nprintf '%s\\n' 'gzip: worn out' 'gzip: giving up' >&2\nexit 3\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  EXPECT_EQ(complaint_of(directory), "gzip failed with status 3: gzip: worn out (5)\n");
}

// The space may have run out for another reason than the tool failed for.
TEST(ClientPack, ReportsWhatAToolSaysWithoutSpaceLeft) {
  const SampleDirectory directory;
  const TempDir small;
  ASSERT_EQ(::mount("small", small.path().c_str(), "tmpfs", 0, "size=64k"), 0);
  const TempDir tools;
  write_program(tools / "gzip",
                "#!/bin/sh\nhead -c 100000 /dev/zero >fill 2>/dev/null\n"
                "echo 'gzip: worn out' >&2\nexit 3\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  const Ran run = pack(directory, small / "x.tbx");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: cannot pack '" + directory.path() + "': no space left in '" +
                            small.path().string() +
                            "' for intermediate files: gzip failed with status 3: gzip: worn out "
                            "(28)\n");
  EXPECT_EQ(::umount2(small.path().c_str(), MNT_DETACH), 0);
}

TEST(ClientPack, StopsAToolThatDoesNotEnd) {
  const SampleDirectory directory;
  const TempDir tools;
  write_program(tools / "gzip", "#!/bin/sh\nsleep 1000\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  const Ran run =
      run_tarvio({"pack", directory.path(), "-o", directory.beside("x.tbx"), "--timeout", "0.1"});
  EXPECT_EQ(run.status, 5);
  EXPECT_THAT(run.errors, HasSubstr("gzip timed out and was stopped (use --timeout SECONDS to "
                                    "wait longer) (110)"));
}

TEST(ClientPack, RefusesToWriteIntoTheDirectoryItself) {
  const SampleDirectory directory;
  for (const char* name : {"x.tbx", "data/x.tbx"}) {
    const std::string file = directory / name;
    const Ran run = pack(directory, file);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors,
                HasSubstr("the output file '" + file + "' must not be inside the directory (22)"));
  }
}

TEST(ClientPack, SaysWhyItCannotWrite) {
  const SampleDirectory directory;
  const std::string file = directory.beside("nowhere/x.tbx");
  const Ran run = pack(directory, file);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("cannot write '" + file + "': No such file or directory (2)"));
  std::filesystem::create_directory(directory.beside("directory.tbx"));
  EXPECT_THAT(pack(directory, directory.beside("directory.tbx")).errors,
              HasSubstr("Is a directory (21)"));
}

}  // namespace
}  // namespace tarvio_test
