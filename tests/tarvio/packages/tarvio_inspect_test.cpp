// tarvio inspect.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "packages/package_file.h"
#include "support/children.h"
#include "support/files.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

using Names = std::vector<std::string>;

TEST(ClientInspect, ShowsWhatAPackageFileHolds) {
  const HandMadePackage clock;
  const HandMadePackage image("Package: firmware\nVersion: 2.0\n", kImageTqControl);
  const Ran run = run_tarvio({"inspect", clock.path(), image.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  const std::string gap(clock.path().size() - 4 + 2, ' ');
  EXPECT_EQ(run.output,
            "FILE" + gap + "NAME      VERSION  CATEGORY     SUBCATEGORY         TARGETS\n" +
                clock.path() + "  clock     1.0      Application  Application_Native\n" +
                image.path() +
                "  firmware  2.0      Image        Image_Other         kernel rootfs\n");
}

TEST(ClientInspect, IsJsonForScripts) {
  const HandMadePackage image("Package: firmware\nVersion: 2.0\n", kImageTqControl);
  const Ran run = run_tarvio({"inspect", "--json", image.path(), "/nowhere"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(
      json::parse(run.output),
      json::array({{{"file", image.path()},
                    {"code", 0},
                    {"message", "Success"},
                    {"name", "firmware"},
                    {"version", "2.0"},
                    {"category", "Image"},
                    {"category_code", 0},
                    {"subcategory", "Image_Other"},
                    {"subcategory_code", 13},
                    {"targets", {"kernel", "rootfs"}}},
                   {{"file", "/nowhere"}, {"code", 2}, {"message", "No such file or directory"}}}));
}

// In the numbers of "list", which also takes them.
TEST(ClientInspect, HasOneMeaningForACategoryCode) {
  for (const auto& [category, code] :
       {std::pair{"Image", 0}, {"Application", 1}, {"Fonts", 2}, {"Applications", 2}}) {
    const HandMadePackage package(kSampleControl, std::string("TqPackageCategory: ") + category +
                                                      "\nTqPackageSubCategory: x\n");
    const json shown = json::parse(run_tarvio({"inspect", "--json", package.path()}).output);
    EXPECT_EQ(shown[0]["category_code"], code) << category;
  }
}

TEST(ClientInspect, ShowsTheWholeVersion) {
  const HandMadePackage package("Package: clock\nVersion:  1:2.0 \n");
  const json shown = json::parse(run_tarvio({"inspect", "--json", package.path()}).output);
  EXPECT_EQ(shown[0]["version"], "1:2.0");
}

TEST(ClientInspect, NamesAToolThatIsMissing) {
  const HandMadePackage package;
  for (const std::string tool : {"ar", "tar", "gzip"}) {
    const PathWithout path(tool);
    const Ran run = run_tarvio({"inspect", package.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "tarvio: cannot inspect '" + package.path() + "': the tool " + tool +
                              " is missing; install it, or add its directory to PATH (2)\n");
  }
}

TEST(ClientInspect, TakesAFileOfAnyName) {
  const HandMadePackage package;
  for (const char* name : {"a b.tbx", "$(touch x).ipk", "-x", "it's;\n"}) {
    std::filesystem::copy_file(package.path(), package / name);
    const Ran run = run_tarvio({"inspect", "--json", "--", name},
                               [&] { EXPECT_EQ(::chdir((package / "").c_str()), 0); });
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(json::parse(run.output)[0]["name"], "clock");
  }
  EXPECT_FALSE(std::filesystem::exists(package / "x"));
}

TEST(ClientInspect, ShowsTheOtherFilesWhenOneFails) {
  const HandMadePackage package;
  const Ran run = run_tarvio({"inspect", "/nowhere.tbx", package.path()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: cannot inspect '/nowhere.tbx': No such file or directory (2)\n");
  EXPECT_THAT(run.output, HasSubstr(package.path()));
}

TEST(ClientInspect, DoesNotWaitForAFifo) {
  const TempDir directory;
  ASSERT_EQ(::mkfifo((directory / "x.tbx").c_str(), 0600), 0);
  EXPECT_THAT(run_tarvio({"inspect", directory / "x.tbx"}).errors,
              HasSubstr("not a regular file (22)"));
}

TEST(ClientInspect, CutsTheTargetOutOfItsLine) {
  EXPECT_EQ(client::target_in("TqDataTarget: kernel\n"), "kernel");
  EXPECT_EQ(client::target_in("TqDataTarget:kernel\r\n"), "kernel");
  EXPECT_EQ(client::target_in("TqDataTarget:  two words"), "two words");
  EXPECT_EQ(client::target_in("TqDataTarget:\n"), "");
  EXPECT_EQ(client::target_in(""), "");
}

// What is said of a package that cannot be read. Nothing is left of the attempt.
std::string complaint_of(const HandMadePackage& package) {
  const PrivateTemporaryDirectory temporary;
  const Ran run = run_tarvio({"inspect", package.path(), "--timeout", "20"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(temporary.entries(), Names());
  const std::string beginning = "tarvio: cannot inspect '" + package.path() + "': ";
  EXPECT_EQ(run.errors.substr(0, beginning.size()), beginning);
  return run.errors.substr(std::min(run.errors.size(), beginning.size()));
}

constexpr char kNoArchive[] = "it has no control.tar.gz: damaged, or not a package file (22)\n";
constexpr char kNoName[] =
    "its control.tar.gz has no package name or version: damaged, or not a package file (22)\n";

TEST(ClientInspectOfAHostilePackage, SaysThatItIsNotOne) {
  const HandMadePackage package;
  for (const char* line :
       {": >clock.tbx", "echo text >clock.tbx", "head -c 9000 /dev/zero >clock.tbx",
        "rm clock.tbx; ar rc clock.tbx debian-binary data.tar.gz"}) {
    package.shell(line);
    EXPECT_EQ(complaint_of(package), kNoArchive);
  }
}

TEST(ClientInspectOfAHostilePackage, SaysThatAControlFileIsMissing) {
  const HandMadePackage package;
  package.shell("tar czf control.tar.gz ./control");
  package.build();
  EXPECT_EQ(complaint_of(package), "it has no tqcontrol file, so tarvio does not manage it (2)\n");
  package.shell("tar czf control.tar.gz ./tqcontrol");
  package.build();
  EXPECT_EQ(complaint_of(package), kNoName);
  package.shell("tar czf control.tar.gz control tqcontrol");  // other names than "./control"
  package.build();
  EXPECT_EQ(complaint_of(package), kNoName);
}

TEST(ClientInspectOfAHostilePackage, SaysThatTqcontrolHasNoKeys) {
  const HandMadePackage package(kSampleControl, std::string("\x01\xff\x00\n\x80\x1b[2J", 9));
  EXPECT_EQ(complaint_of(package), "its tqcontrol has no keys (22)\n");
}

TEST(ClientInspectOfAHostilePackage, ShowsBytesThatCouldDriveTheTerminal) {
  const HandMadePackage package("Package: a\x1b[2J\nVersion: \xff\n");
  const Ran run = run_tarvio({"inspect", package.path()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, HasSubstr("a\\x1b[2J  \\xff "));
  EXPECT_EQ(json::parse(run_tarvio({"inspect", "--json", package.path()}).output)[0]["version"],
            "\ufffd");
}

TEST(ClientInspectOfAHostilePackage, NeverHangsOrCrashesWhereverItIsCut) {
  const HandMadePackage package;
  const std::string whole = read_file(package.path());
  ASSERT_GT(whole.size(), 500U);
  const PrivateTemporaryDirectory temporary;
  for (size_t size = 0; size < whole.size(); size += 16) {
    write_file(package.path(), whole.substr(0, size));
    const Ran run = run_tarvio({"inspect", package.path()});
    // The control archive comes before the data: with it whole, there is something to show.
    EXPECT_TRUE(run.status == 1 || (run.status == 0 && size > 300)) << size << run.errors;
    EXPECT_EQ(temporary.entries(), Names()) << size;
  }
}

TEST(ClientInspectOfAHostilePackage, WritesNothingOutsideItsDirectory) {
  const HandMadePackage package;
  package.shell(
      "echo evil >evil; tar czPf control.tar.gz --transform 's,^./evil,./../../evil,' ./control "
      "./tqcontrol ./evil; "
      "mkdir -p deep/er; cp evil deep/er/; cp evil deep/");
  package.shell(
      "rm clock.tbx; cd deep/er; cp ../../debian-binary ../../*.tar.gz .; ar rcP ../../clock.tbx "
      "debian-binary ../evil /etc/hostname ../../control.tar.gz control.tar.gz data.tar.gz");
  const PrivateTemporaryDirectory temporary;
  (void)run_tarvio({"inspect", package.path()});
  (void)run_tarvio({"inspect", package.path()}, [&] { EXPECT_EQ(::chdir("/"), 0); });
  EXPECT_EQ(temporary.entries(), Names());
  EXPECT_FALSE(std::filesystem::exists(temporary.path().parent_path() / "evil"));
}

TEST(ClientInspectOfAHostilePackage, RefusesWhatIsNotARegularFile) {
  const HandMadePackage package;
  for (const char* line : {"ln -sf /etc/passwd tqcontrol", "rm tqcontrol; mkfifo tqcontrol",
                           "rm tqcontrol; mkdir tqcontrol; touch tqcontrol/x; chmod 0 tqcontrol"}) {
    package.shell(line);
    package.shell("tar czf control.tar.gz ./control ./tqcontrol");
    package.build();
    EXPECT_EQ(complaint_of(package), "its tqcontrol is not a regular file (22)\n");
  }
}

TEST(ClientInspectOfAHostilePackage, DoesNotFillTheDisk) {
  const HandMadePackage package;
  package.shell(
      "truncate -s 2G tqcontrol; tar czSf control.tar.gz ./control ./tqcontrol; truncate -s 0 "
      "tqcontrol");
  package.build();
  EXPECT_THAT(complaint_of(package),
              StartsWith("cannot unpack its control.tar.gz: File too large"));
}

TEST(ClientInspectOfAHostilePackage, FindsItsFilesAmongManyMembers) {
  const HandMadePackage package;
  package.shell(
      "mkdir many; cd many; seq 20000 | xargs touch; cd ..; tar czf control.tar.gz ./many "
      "./control "
      "./tqcontrol");
  package.build();
  EXPECT_EQ(run_tarvio({"inspect", package.path()}).status, 0);
}

// A tool that waits until it is ended, and leaves the file "started" where it works: it can write
// nowhere else.
void add_slow_tool(const TempDir& tools, const std::string& first_line = "") {
  write_program(tools / "ar", "#!/bin/sh\n" + first_line + "\n: >started\nsleep 1000\n");
  ::setenv("PATH", (tools.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
}

std::filesystem::path started_in(const PrivateTemporaryDirectory& temporary) {
  for (const std::string& entry : temporary.entries()) {
    if (std::filesystem::exists(temporary.path() / entry / "started"))
      return temporary.path() / entry;
  }
  return {};
}

// Whether a process has its current directory there.
bool has_process(const std::filesystem::path& directory) {
  for (const auto& process : std::filesystem::directory_iterator("/proc")) {
    std::error_code error;
    const std::string place = std::filesystem::read_symlink(process.path() / "cwd", error);
    if (place.starts_with(directory.string() + "/")) return true;
  }
  return false;
}

pid_t start_inspecting(const HandMadePackage& package) {
  const pid_t client = ::fork();
  if (client == 0) {
    ::execl(TARVIO_CLIENT, "tarvio", "inspect", package.path().c_str(), nullptr);
    ::_exit(126);
  }
  return client;
}

TEST(ClientInspect, WorksInADirectoryOfItsOwn) {
  const HandMadePackage package;
  const TempDir tools;
  add_slow_tool(tools, "{ stat -c %a .; pwd; echo \"$LC_ALL\"; cat; } >note");
  const PrivateTemporaryDirectory temporary;
  const pid_t client = start_inspecting(package);
  ASSERT_TRUE(eventually([&] { return !started_in(temporary).empty(); }));
  const std::string directory = started_in(temporary);
  EXPECT_EQ(read_file(directory + "/note"), "700\n" + directory + "\nC\n");
  ::kill(client, SIGTERM);
  (void)end_of(client);
}

TEST(ClientInspectThatIsInterrupted, LeavesNothingBehind) {
  const HandMadePackage package;
  const TempDir tools;
  add_slow_tool(tools);
  const PrivateTemporaryDirectory temporary;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const pid_t client = start_inspecting(package);
    ASSERT_TRUE(eventually([&] { return !started_in(temporary).empty(); }));
    EXPECT_EQ(temporary.entries().size(), 1U);
    ::kill(client, number);
    const int status = end_of(client);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
    EXPECT_EQ(temporary.entries(), Names());
  }
}

TEST(ClientInspectThatTakesTooLong, StopsItsTools) {
  const HandMadePackage package;
  const TempDir tools;
  add_slow_tool(tools);
  const PrivateTemporaryDirectory temporary;
  const Ran run = run_tarvio({"inspect", package.path(), "--timeout", "0.2"});
  EXPECT_EQ(run.status, 5);
  EXPECT_EQ(run.errors, "tarvio: cannot inspect '" + package.path() +
                            "': ar or tar timed out and was stopped (use --timeout SECONDS to "
                            "wait longer) (110)\n");
  EXPECT_EQ(temporary.entries(), Names());
  EXPECT_TRUE(eventually([&] { return !has_process(temporary.path()); }));
}

TEST(ClientInspectThatTakesTooLong, StopsToolsThatIgnoreSigterm) {
  const HandMadePackage package;
  const TempDir tools;
  add_slow_tool(tools, "trap '' TERM");
  EXPECT_EQ(run_tarvio({"inspect", package.path(), "--timeout", "0.2"}).status, 5);
}

}  // namespace
}  // namespace tarvio_test
