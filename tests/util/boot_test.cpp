#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <ostream>
#include <string>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/got_hook.h"
#include "tarvio/opkg.h"

namespace tarvio_test {
namespace {

using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr int kUnwritten = -7;
constexpr char kRoot[] = "root=/dev/mtdblock4";

struct Boot {
  int result;
  int online;
};

bool operator==(const Boot& a, const Boot& b) {
  return a.result == b.result && a.online == b.online;
}

std::ostream& operator<<(std::ostream& stream, const Boot& boot) {
  return stream << "result " << boot.result << ", online " << boot.online;
}

constexpr Boot kIsOnline = {0, 1};
constexpr Boot kIsOffline = {0, 0};

Boot boot() {
  Boot boot = {kUnwritten, kUnwritten};
  boot.result = tq_is_boot_online(&boot.online);
  return boot;
}

Boot boot_with(const std::string& command_line) {
  write_kernel_command_line(command_line);
  return boot();
}

TEST(BootTest, FindsTheInstalledRootAnywhereInTheLine) {
  EXPECT_EQ(boot_with("root=/dev/mtdblock4"), kIsOnline);
  EXPECT_EQ(boot_with("root=/dev/mtdblock4\n"), kIsOnline);
  EXPECT_EQ(boot_with("console=ttyAMA0 root=/dev/mtdblock4 rw quiet\n"), kIsOnline);
  EXPECT_EQ(boot_with("nfsroot=/dev/mtdblock42\n"), kIsOnline);
}

TEST(BootTest, TakesEveryOtherRootForOffline) {
  EXPECT_EQ(boot_with("console=ttyAMA0 root=/dev/mtdblock5 rw\n"), kIsOffline);
  EXPECT_EQ(boot_with("root=/dev/mtdblock\n"), kIsOffline);
  EXPECT_EQ(boot_with("root= /dev/mtdblock4\n"), kIsOffline);
  EXPECT_EQ(boot_with("ROOT=/dev/mtdblock4\n"), kIsOffline);
  EXPECT_EQ(boot_with("\n"), kIsOffline);
}

TEST(BootTest, Searches256BytesOfTheLine) {
  const std::string before(256 - (sizeof kRoot - 1), 'x');
  EXPECT_EQ(boot_with(before + kRoot + " rw\n"), kIsOnline);
  EXPECT_EQ(boot_with(before + "x" + kRoot + " rw\n"), kIsOffline);
  EXPECT_EQ(boot_with(std::string(4000, 'x') + kRoot), kIsOffline);
}

TEST(BootTest, SearchesTheFirstLineOnly) {
  EXPECT_EQ(boot_with("console=ttyAMA0\nroot=/dev/mtdblock4\n"), kIsOffline);
  EXPECT_EQ(boot_with("\nroot=/dev/mtdblock4\n"), kIsOffline);
}

TEST(BootTest, LeavesTheFlagAloneWhenTheFileIsEmptyWhateverErrnoWas) {
  write_kernel_command_line("");
  errno = EIO;
  EXPECT_EQ(boot(), (Boot{0, kUnwritten}));
}

TEST(BootTest, NeedsAPlaceForTheFlag) { EXPECT_EQ(tq_is_boot_online(nullptr), EINVAL); }

TEST(BootTest, LeavesNoDescriptorOpen) {
  const Descriptors before = open_descriptors();
  boot();
  EXPECT_THAT(opened_since(before), IsEmpty());
}

std::string opened_instead;

int open_instead(const char*, int flags, ...) { return ::open(opened_instead.c_str(), flags); }

TEST(BootTest, WithoutTheFileReturnsTheErrorAndLeavesTheFlagAlone) {
  opened_instead = "/no/such/file";
  const Hook open("open", &open_instead);
  EXPECT_EQ(boot(), (Boot{ENOENT, kUnwritten}));
}

TEST(BootTest, OfALineThatIsCutByAnErrorReturnsItAndLeavesTheFlagAlone) {
  write_kernel_command_line(kRoot);
  int calls = 0;
  Hook read("read", [&](int fd, void* bytes, size_t) -> ssize_t {
    if (++calls < 8) return ::read(fd, bytes, 1);
    errno = EIO;
    return -1;
  });
  EXPECT_EQ(boot(), (Boot{EIO, kUnwritten}));
}

TEST(BootTest, ThatCannotReadReturnsTheErrorAndLeavesTheDescriptorOpen) {
  opened_instead = "/usr";
  const Hook open("open", &open_instead);
  const Descriptors before = open_descriptors();
  EXPECT_EQ(boot(), (Boot{EISDIR, kUnwritten}));
  EXPECT_THAT(opened_since(before), ElementsAre(Pair(_, "/usr")));
}

}  // namespace
}  // namespace tarvio_test
