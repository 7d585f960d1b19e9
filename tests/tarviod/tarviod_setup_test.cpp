// What tarviod makes of the information directory when it starts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/prctl.h>

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarviod.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

constexpr char kInformation[] = "/usr/lib/opkg/info";

std::string ready_line(const std::string& applications) {
  return "tarviod: " + applications + " installed, answering on " TQ_COM_SOCKET_PATH "\n";
}

void expect_refusal(
    const std::string& complaint, const std::function<void()>& prepare = [] {}) {
  const Ended run = run_tarviod({}, prepare);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: " + complaint + "\n");
  EXPECT_EQ(run.output, "");
  EXPECT_FALSE(fs::exists(TQ_COM_SOCKET_PATH));
}

// Even root reads only what the mode allows.
void give_up_reading_everything() {
  ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
  ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
}

TEST(TarviodSetup, ContinuesWithoutAnInformationDirectory) {
  fs::remove(kInformation);
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.errors(),
            "tarviod: /usr/lib/opkg/info: No such file or directory: no application is known\n");
  EXPECT_EQ(manager.output(), ready_line("0 applications"));
}

TEST(TarviodSetup, RefusesToStartWhenTheBootTestFails) {
  install_application("clock");
  const TempDir directory;
  const Socket socket =
      listen_on(directory / "socket");  // a file that cannot be opened, even by root
  const std::string source = directory / "socket";
  ASSERT_EQ(::mount(source.c_str(), "/proc/cmdline", nullptr, MS_BIND, nullptr), 0);
  expect_refusal("/proc/cmdline: No such device or address: make it readable");
  ::umount2("/proc/cmdline", MNT_DETACH);
}

TEST(TarviodSetup, RefusesToStartWhenTheDirectoryCannotBeRead) {
  install_application("clock");
  fs::permissions(kInformation, fs::perms::none);
  expect_refusal("/usr/lib/opkg/info: Permission denied: make it readable",
                 give_up_reading_everything);
}

TEST(TarviodSetup, RefusesToStartWhenAFileStandsInPlaceOfTheDirectory) {
  fs::remove(kInformation);
  write_file(kInformation, "");
  expect_refusal("/usr/lib/opkg/info: Not a directory: make it readable");
}

class UnreadableFile : public testing::TestWithParam<const char*> {};

TEST_P(UnreadableFile, KeepsTarviodFromStarting) {
  install_application("clock");
  install_application("radio");
  const fs::path file = information_file("clock", GetParam());
  fs::permissions(file, fs::perms::none);
  expect_refusal(file.string() + ": Permission denied: make it readable",
                 give_up_reading_everything);
}

INSTANTIATE_TEST_SUITE_P(TarviodSetup, UnreadableFile, testing::Values(".control", ".tqcontrol"));

struct Damage {
  const char* extension;
  const char* text;
  const char* missing;
};

std::ostream& operator<<(std::ostream& stream, const Damage& damage) {
  return stream << damage.extension << " " << damage.text;
}

class DamagedFile : public testing::TestWithParam<Damage> {};

TEST_P(DamagedFile, IsNamedAndItsPackageLeftOut) {
  install_application("clock");
  install_application("radio");
  const fs::path file = information_file("clock", GetParam().extension);
  write_file(file, GetParam().text);
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.errors(), "tarviod: " + file.string() + ": has no " + GetParam().missing +
                                  ", so the package is left out: install it again\n");
  EXPECT_EQ(manager.output(), ready_line("1 application"));
}

INSTANTIATE_TEST_SUITE_P(TarviodSetup, DamagedFile,
                         testing::Values(Damage{".control", "", "Package"},
                                         Damage{".control", "Version: 1.0\n", "Package"},
                                         Damage{".control", "Package:clock\n", "Package"},
                                         Damage{".tqcontrol", "", "TqPackageCategory"},
                                         Damage{".tqcontrol", "TqPackageCat",
                                                "TqPackageCategory"}));

TEST(TarviodSetup, NamesADirectoryInPlaceOfAControlFile) {
  fs::create_directory(information_file("clock", ".control"));
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_THAT(manager.errors(), HasSubstr("clock.control: has no Package"));
}

TEST(TarviodSetup, IsSilentAboutPackagesOfOthers) {
  write_file(information_file("busybox", ".control"), "Package: busybox\nVersion: 1.36\n");
  write_file(information_file("busybox", ".list"), "/bin/busybox\n");
  write_file(information_file("", ".control"), "");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.errors(), "");
}

// The listing takes names from inside the files (oddity 67), and pieces of a long line for lines
// (oddity 25).
TEST(TarviodSetup, ReadsTheFilesAsTheListingDoes) {
  install_application("clock");
  fs::rename(information_file("clock", ".control"), information_file("other", ".control"));
  install_application("radio");
  write_file(information_file("radio", ".control"),
             "Description: " + std::string(242, 'x') + "Package: radio\r\n");
  write_file(information_file("radio", ".tqcontrol"),
             "TqPackageCategory: Image\nTqPackageCategory:  Application of ours\n");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(manager.errors(), "");
  EXPECT_EQ(manager.output(), ready_line("2 applications"));
}

// A read that fails once, for instance because descriptors or memory ran short for a moment.
TEST(TarviodSetup, NeverRunsWithoutAnInstalledApplication) {
  install_application("clock");
  const TempDir directory;
  const std::string count = directory / "count";
  int refused = 0;
  write_file(count, "1");
  while (fs::exists(count)) {
    Tarviod manager({}, with_module(TARVIOD_FAILING_SETUP, count));
    ASSERT_TRUE(eventually([&] { return !manager.output().empty() || manager.has_ended(); }));
    if (manager.has_ended()) {
      ++refused;
      EXPECT_EQ(manager.end(), 1);
      EXPECT_EQ(manager.errors(),
                "tarviod: clock: is installed but could not be read: "
                "free memory and descriptors, then start tarviod again\n");
    } else {
      EXPECT_EQ(manager.output(), ready_line("1 application"));
      ASSERT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
      process_of("clock");
      forget_process_of("clock");
    }
    if (fs::exists(count)) write_file(count, std::to_string(std::stoi(read_file(count)) + 1));
  }
  EXPECT_GE(refused, 6);
}

}  // namespace
}  // namespace tarvio_test
