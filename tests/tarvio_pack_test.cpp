// tarvio pack.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/tarvio.h"
#include "support/tarvio_packages.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

Ran pack(const SampleFolder& folder, const std::string& output) {
  return run_tarvio({"pack", folder.path(), "-o", output});
}

// What a command prints about a package file.
std::string listing_of(const SampleFolder& folder, const std::string& command) {
  shell(folder.beside("").parent_path(), command + " >listing");
  return read_file(folder.beside("listing"));
}

TEST(ClientPack, MakesAPackageFile) {
  const SampleFolder folder;
  const std::string file = folder.beside("clock.tbx");
  const Ran run = pack(folder, file);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  const std::string size = std::to_string(std::filesystem::file_size(file));
  EXPECT_EQ(run.output, "packed clock 1.0 into " + file + ", " + size + " bytes\n");
  EXPECT_EQ(listing_of(folder, "ar t clock.tbx"), "debian-binary\ncontrol.tar.gz\ndata.tar.gz\n");
  EXPECT_EQ(listing_of(folder, "ar p clock.tbx debian-binary"), "2.0\n");
  EXPECT_EQ(listing_of(folder, "ar p clock.tbx control.tar.gz | tar tz"),
            "./control\n./tqcontrol\n./tqstartapp\n");
  EXPECT_EQ(listing_of(folder, "ar p clock.tbx data.tar.gz | tar tz"),
            "./\n./opt/\n./opt/clock/\n./opt/clock/face\n");
}

TEST(ClientPack, MakesWhatInspectReads) {
  const SampleFolder folder;
  const std::string file = folder.beside("clock.tbx");
  ASSERT_EQ(pack(folder, file).status, 0);
  const json inspected = json::parse(run_tarvio({"inspect", "--json", file}).output);
  EXPECT_EQ(inspected[0]["name"], "clock");
  EXPECT_EQ(inspected[0]["version"], "1.0");
  EXPECT_EQ(inspected[0]["subcategory"], "Application_Native");
}

TEST(ClientPack, GivesTheSameBytesAgain) {
  const SampleFolder folder;
  ASSERT_EQ(pack(folder, folder.beside("one.tbx")).status, 0);
  shell(folder.path(),
        "touch -d 2020-02-02 data/opt control; chmod 664 control; chown -R 0:0 data");
  const Ran again = run_tarvio({"pack", folder.path(), "-o", folder.beside("two.tbx")}, [] {
    ::umask(077);
    ::setenv("TZ", "Asia/Tokyo", 1);
  });
  ASSERT_EQ(again.status, 0);
  EXPECT_EQ(read_file(folder.beside("one.tbx")), read_file(folder.beside("two.tbx")));
}

TEST(ClientPack, HasAnEmptyDataArchiveForAFolderWithoutData) {
  const SampleFolder folder;
  std::filesystem::remove_all(folder / "data");
  ASSERT_EQ(pack(folder, folder.beside("clock.tbx")).status, 0);
  EXPECT_EQ(listing_of(folder, "ar p clock.tbx data.tar.gz | tar tz"), "./\n");
}

TEST(ClientPack, TakesFoldersAndFilesOfAnyName) {
  const SampleFolder folder;
  folder.write("data/opt/a b;c\n-d", "x");
  const std::string odd = folder.beside("$(odd) folder's");
  std::filesystem::rename(folder.path(), odd);
  const Ran run = run_tarvio({"pack", odd, "-o", folder.beside("a b.tbx")});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(std::filesystem::exists(folder.beside("a b.tbx")));
}

TEST(ClientPack, WritesIntoTheCurrentFolder) {
  const SampleFolder folder;
  const std::string place = folder.beside("").parent_path();
  const Ran run = run_tarvio({"pack", "clock", "--output=x.tbx", "--json"},
                             [&] { EXPECT_EQ(::chdir(place.c_str()), 0); });
  EXPECT_EQ(run.status, 0) << run.errors;
  const json result = json::parse(run.output);
  EXPECT_EQ(result, json({{"folder", "clock"},
                          {"code", 0},
                          {"message", "Success"},
                          {"file", "x.tbx"},
                          {"name", "clock"},
                          {"version", "1.0"},
                          {"size_bytes", std::filesystem::file_size(folder.beside("x.tbx"))}}));
}

TEST(ClientPack, WritesAFolderWithoutDataIntoTheCurrentFolder) {
  const SampleFolder folder;
  std::filesystem::remove_all(folder / "data");
  const std::string place = folder.beside("").parent_path();
  const Ran run =
      run_tarvio({"pack", "clock", "-o", "x.tbx"}, [&] { EXPECT_EQ(::chdir(place.c_str()), 0); });
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(listing_of(folder, "ar p x.tbx data.tar.gz | tar tz"), "./\n");
}

// What a folder that cannot be packed is told, and that nothing is left of the attempt.
std::string complaint_of(const SampleFolder& folder) {
  const PrivateTemporaryFolder temporary;
  const std::filesystem::path place = folder.beside("out");
  std::filesystem::create_directory(place);
  write_file(place / "clock.tbx", "old");
  const Ran run = pack(folder, place / "clock.tbx");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(read_file(place / "clock.tbx"), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place), {}), 1);
  EXPECT_EQ(temporary.entries(), std::vector<std::string>());
  const std::string beginning = "tarvio: cannot pack '" + folder.path() + "': ";
  EXPECT_EQ(run.errors.substr(0, beginning.size()), beginning);
  return run.errors.substr(std::min(run.errors.size(), beginning.size()));
}

TEST(ClientPackOfAWrongFolder, SaysThatItIsNotThere) {
  const SampleFolder folder;
  std::filesystem::remove_all(folder.path());
  EXPECT_EQ(complaint_of(folder), "No such file or directory (2)\n");
}

TEST(ClientPackOfAWrongFolder, SaysThatAControlFileIsMissing) {
  const SampleFolder folder;
  std::filesystem::remove(folder / "control");
  EXPECT_EQ(complaint_of(folder), "its control: cannot read it: No such file or directory (2)\n");
}

TEST(ClientPackOfAWrongFolder, SaysWhatIsWrongInAControlFile) {
  const SampleFolder folder;
  folder.write("tqcontrol", "TqPackageCategory: Applications");
  EXPECT_EQ(complaint_of(folder), "its tqcontrol: line 1 has no line end (22)\n");
}

TEST(ClientPackOfAWrongFolder, SaysThatAProgramIsNotExecutable) {
  const SampleFolder folder;
  folder.write("tqstopapp", "#!/bin/sh\n");
  EXPECT_EQ(complaint_of(folder), "its tqstopapp is not executable (13)\n");
}

TEST(ClientPackOfAWrongFolder, SaysThatItsDataWouldCloseTheDevice) {
  const SampleFolder folder;
  for (const unsigned mode : {0700U, 0711U, 0750U}) {
    std::filesystem::permissions(folder / "data", std::filesystem::perms{mode});
    EXPECT_EQ(complaint_of(folder),
              "its data, which is / on the device, is closed to some: it needs mode 755 (13)\n");
    std::filesystem::remove_all(folder.beside("out"));
  }
  std::filesystem::permissions(folder / "data", std::filesystem::perms{0775});
  EXPECT_EQ(pack(folder, folder.beside("clock.tbx")).status, 0);
}

TEST(ClientPackOfAWrongFolder, SaysWhatDoesNotBelongInIt) {
  const SampleFolder folder;
  folder.write("tqstart", "#!/bin/sh\n");
  EXPECT_EQ(complaint_of(folder), "its 'tqstart' has no place in a package (22)\n");
}

TEST(ClientPackOfAWrongFolder, RefusesALinkInPlaceOfAControlFile) {
  const SampleFolder folder;
  std::filesystem::rename(folder / "control", folder.beside("elsewhere"));
  std::filesystem::create_symlink("../elsewhere", folder / "control");
  EXPECT_EQ(complaint_of(folder), "its control is no plain file (22)\n");
}

TEST(ClientPackOfAWrongFolder, FindsAnotherVersionBehindALongLine) {
  const SampleFolder folder;
  // The library takes the line in pieces of 255 bytes, and the second one is a key.
  const std::string description = "Description: " + std::string(255 - 13, 'x') + "Version: 9\n";
  folder.write("control", kSampleControl + description);
  EXPECT_EQ(complaint_of(folder),
            "its control: the library reads '9' for Version: is a line too long? (22)\n");
}

TEST(ClientPackOfAWrongFolder, RefusesAFileThatIsNoControlFileAtAll) {
  const SampleFolder folder;
  folder.write("control", std::string(2 << 20, 'x'));
  EXPECT_EQ(complaint_of(folder), "its control: it is no control file, but 1 MiB long (27)\n");
}

TEST(ClientPack, TellsWhatAToolSaysFirst) {
  const SampleFolder folder;
  const TempDir tools;
  write_program(tools / "gzip",
                "#!/bin/sh\nprintf '%s\\n' 'gzip: worn out' 'gzip: giving up' >&2\nexit 3\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  EXPECT_EQ(complaint_of(folder), "gzip failed with status 3: gzip: worn out (5)\n");
}

TEST(ClientPack, EndsAToolThatDoesNotEnd) {
  const SampleFolder folder;
  const TempDir tools;
  write_program(tools / "gzip", "#!/bin/sh\nsleep 1000\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
  const Ran run =
      run_tarvio({"pack", folder.path(), "-o", folder.beside("x.tbx"), "--timeout", "0.1"});
  EXPECT_EQ(run.status, 5);
  EXPECT_THAT(run.errors, HasSubstr("gzip was not done in time and was ended: --timeout SECONDS "
                                    "waits longer (110)"));
}

TEST(ClientPack, RefusesToWriteIntoTheFolderItself) {
  const SampleFolder folder;
  for (const char* name : {"x.tbx", "data/x.tbx"}) {
    const std::string file = folder / name;
    const Ran run = pack(folder, file);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr("'" + file + "' would lie in it (22)"));
  }
}

TEST(ClientPack, TellsWhyItCannotWrite) {
  const SampleFolder folder;
  const std::string file = folder.beside("nowhere/x.tbx");
  const Ran run = pack(folder, file);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("cannot write '" + file + "': No such file or directory (2)"));
  std::filesystem::create_directory(folder.beside("folder.tbx"));
  EXPECT_THAT(pack(folder, folder.beside("folder.tbx")).errors, HasSubstr("Is a directory (21)"));
}

}  // namespace
}  // namespace tarvio_test
