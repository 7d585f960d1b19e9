#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/log_capture.h"
#include "support/operands.h"
#include "support/string_list.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kUnit[] = "package/tq_tbx_package_binding";
constexpr char kThree[] =
    "echo 'Package app (1.0) is installed on root and has the following files:'\n"
    "echo /opt/b\nprintf '/opt/a c\\r\\n'\nprintf /opt/last";

class PackageFiles : public testing::Test {
 protected:
  ~PackageFiles() override { ::unsetenv("OPKG_OPTIONS"); }

  int list(const std::string& name = "app") const {
    return tq_tbx_files(name.c_str(), files_.get());
  }

  StringList files_;
};

TEST_F(PackageFiles, AreAllLinesAfterTheHeading) {
  const Tool opkg("opkg", kThree);
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(files_.texts(), ElementsAre("/opt/b", "/opt/a c", "/opt/last"));
  EXPECT_EQ(opkg.runs(), "files app\n");
}

TEST_F(PackageFiles, AreAppendedToWhatTheListHolds) {
  const Tool opkg("opkg", kThree);
  files_.add("before\n");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(list(), 0);
  files_.add("after");
  EXPECT_THAT(files_.texts(), ElementsAre("before\n", "/opt/b", "/opt/a c", "/opt/last", "/opt/b",
                                          "/opt/a c", "/opt/last", "after"));
  EXPECT_EQ(tq_list_size(files_.get()), 8);
}

TEST_F(PackageFiles, AreNoneAfterAHeadingAlone) {
  for (const char* body : {"echo heading", "printf heading", "true"}) {
    const Tool opkg("opkg", body);
    EXPECT_EQ(list(), 0);
    EXPECT_THAT(files_.texts(), IsEmpty());
    EXPECT_EQ(tq_list_size(files_.get()), 0);
  }
}

TEST_F(PackageFiles, StayAsTheyWereWhenOpkgComplains) {
  const Tool opkg("opkg", "echo Collected errors:\necho ' * Package app not installed.'\nexit 0");
  files_.add("before");
  EXPECT_EQ(list(), 10305);
  EXPECT_THAT(files_.texts(), ElementsAre("before"));
}

TEST_F(PackageFiles, AreAskedForWithoutOptionsAndWithoutAnOfflineRoot) {
  const Tool opkg("opkg", "");
  ::setenv("OPKG_OPTIONS", "-V2", 1);
  write_kernel_command_line("root=/dev/mtdblock5\n");
  list();
  write_kernel_command_line("root=/dev/mtdblock4\n");
  EXPECT_EQ(opkg.runs(), "files app\n");
}

TEST_F(PackageFiles, ComeInPiecesWhenALineIsLong) {
  const Tool opkg("opkg", "echo heading; printf '%0300d\\n' 0");
  EXPECT_EQ(list(), 0);
  EXPECT_THAT(files_.texts(), ElementsAre(std::string(255, '0'), std::string(45, '0')));
}

TEST_F(PackageFiles, NeedANameAndAList) {
  const Tool opkg("opkg", kThree);
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_tbx_files(nullptr, files_.get()), -1);
  EXPECT_EQ(tq_tbx_files(nullptr, nullptr), -1);
  EXPECT_EQ(tq_tbx_files("app", nullptr), EINVAL);
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
  EXPECT_EQ(opkg.runs(), "");
}

TEST_F(PackageFiles, AreRefusedForANameWithAShellMetacharacter) {
  const Tool opkg("opkg", kThree);
  for (const std::string& name : refused_operands()) {
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(list(name), EINVAL) << name;
    EXPECT_THAT(unit_messages(log, kUnit),
                ElementsAre(StartsWith("warning: tq_tbx_files: " + name + ": ")));
  }
  EXPECT_EQ(opkg.runs(), "");
  EXPECT_THAT(files_.texts(), IsEmpty());
}

TEST_F(PackageFiles, AreGivenForEveryOtherName) {
  for (const std::string& name : taken_operands()) {
    const Tool opkg("opkg", "");
    EXPECT_EQ(list(name), 0);
    EXPECT_EQ(opkg.runs(), "files " + name + "\n");
  }
}

// The command line has a buffer of 4096 bytes.
TEST_F(PackageFiles, AreRefusedForANameThatIsTooLong) {
  const size_t longest = 4095 - std::string("opkg files ").size();
  const Tool opkg("opkg", kThree);
  EXPECT_EQ(list(std::string(longest, 'x')), 0);
  EXPECT_EQ(opkg.runs(), "files " + std::string(longest, 'x') + "\n");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(list(std::string(longest + 1, 'x')), ENAMETOOLONG);
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre(StartsWith("warning: tq_tbx_files: ")));
  EXPECT_EQ(opkg.runs(), "files " + std::string(longest, 'x') + "\n");
}

TEST_F(PackageFiles, StayAsTheyWereWithoutMemory) {
  const Tool opkg("opkg", kThree);
  files_.add("before");
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const FailAlloc fail(n);
    const int result = list();
    happened = fail.happened();
    EXPECT_EQ(result, happened ? ENOMEM : 0) << n;
    if (happened) {
      EXPECT_THAT(files_.texts(), ElementsAre("before"));
    }
  }
  EXPECT_GT(n, 4);
}

}  // namespace
}  // namespace tarvio_test
