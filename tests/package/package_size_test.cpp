#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/children.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/interruption.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kUnit[] = "package/tq_tbx_package_binding";
constexpr int64_t kGiB = int64_t{1} << 30;

// A df that reports this many free blocks of 1024 bytes.
std::string df_of(const std::string& blocks) {
  return "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
         "echo '/dev/mtdblock4  99999999   1000   " +
         blocks + "  1% /'\necho '/dev/other 1 1 1 1% /other'";
}

class SizeCheck : public testing::Test {
 protected:
  // Builds app.tbx with this many bytes of control files and of data.
  void build(size_t control_bytes, size_t data_bytes) const {
    write_file("control", std::string(control_bytes, 'c'));
    write_file("data", std::string(data_bytes, 'd'));
    work_.shell(
        "tar czf control.tar.gz ./control; tar czf data.tar.gz ./data; echo 2.0 >debian-binary; "
        "ar rc app.tbx debian-binary control.tar.gz data.tar.gz; "
        "rm control data control.tar.gz data.tar.gz debian-binary");
  }
  static int check() {
    std::fflush(stdout);
    return tq_tbx_check_file_size("app.tbx");
  }
  static int check_with_free(int64_t bytes) {
    const Tool df("df", df_of(std::to_string(bytes / 1024)));
    return check();
  }

  const WorkDirectory work_;
};

TEST_F(SizeCheck, PassesWhenTheContentsFit) {
  build(100, 2000);
  EXPECT_EQ(check_with_free(1 << 20), 0);
}

TEST_F(SizeCheck, PassesWhenTheContentsFillTheFreeSpace) {
  build(24, 1000);
  EXPECT_EQ(check_with_free(1024), 0);
}

TEST_F(SizeCheck, FailsWhenTheContentsAreOneByteLarger) {
  build(24, 1001);
  EXPECT_EQ(check_with_free(1024), -1);
  build(25, 1000);
  EXPECT_EQ(check_with_free(1024), -1);
}

TEST_F(SizeCheck, CountsAllMembersWithTheirUncompressedSizes) {
  work_.shell(
      "mkdir -p d/e; head -c 300 /dev/zero >d/a; head -c 500 /dev/zero >d/e/b; echo x >c; "
      "tar czf control.tar.gz ./c; tar czf data.tar.gz d; ar rc app.tbx control.tar.gz "
      "data.tar.gz; "
      "rm -r control.tar.gz data.tar.gz c d");
  const Tool df("df", df_of("1"));
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(check(), 0);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: total=[802] bytes, control=[2] bytes, "
                          "data=[800] bytes, disk=[1024] bytes "));
}

TEST_F(SizeCheck, LogsItsNumbersWhenThePackageDoesNotFit) {
  build(100, 2000);
  const Tool df("df", df_of("2"));
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(check(), -1);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: total=[2100] bytes, control=[100] bytes, "
                          "data=[2000] bytes, disk=[2048] bytes "));
}

// The free space is a signed 32-bit number of bytes.
TEST_F(SizeCheck, FailsWith2And3GiBFreeBeforeItComparesAnything) {
  build(100, 2000);
  for (const int64_t free : {2 * kGiB, 3 * kGiB, 4 * kGiB - 1024}) {
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(check_with_free(free), -1);
    EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
  }
}

TEST_F(SizeCheck, WrapsAroundAt4GiB) {
  build(100, 2000);
  const auto disk_of = [](int64_t free, int result) {
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(check_with_free(free), result);
    return log.messages(TQ_LOG_DEBUG).back();
  };
  const std::string before =
      "tq_tbx_check_file_size: total=[2100] bytes, control=[100] bytes, data=[2000] bytes, disk=[";
  EXPECT_EQ(disk_of(2 * kGiB - 1024, 0), before + "2147482624] bytes ");
  EXPECT_EQ(disk_of(4 * kGiB, -1), before + "0] bytes ");
  EXPECT_EQ(disk_of(4 * kGiB + 2048, -1), before + "2048] bytes ");
  EXPECT_EQ(disk_of(5 * kGiB, 0), before + "1073741824] bytes ");
}

TEST_F(SizeCheck, UsesTheRealDf) {
  build(100, 2000);
  FILE* df = ::popen("df | awk 'NR == 2 { print $4 }'", "r");
  long long blocks = 0;
  ASSERT_EQ(std::fscanf(df, "%lld", &blocks), 1);
  ::pclose(df);
  const auto bytes = static_cast<int32_t>(static_cast<uint32_t>(blocks * 1024));
  EXPECT_EQ(check(), bytes >= 2100 ? 0 : -1);
}

TEST_F(SizeCheck, TakesTheFirstFileSystemOnly) {
  build(100, 2000);
  const Tool df("df", "echo heading; echo a 1 1 1 1% /; echo b 1 1 100000 1% /b");
  EXPECT_EQ(check(), -1);
}

TEST_F(SizeCheck, CountsAnUnclearLineOfDfAsNoFreeSpace) {
  for (const size_t bytes : {size_t{0}, size_t{1}}) {
    build(0, bytes);
    for (const char* body :
         {"true", "echo heading", "echo heading; echo", "echo heading; echo a 1 1",
          "echo heading; echo '   '", "echo heading; echo a 1 1 -"}) {
      const Tool df("df", body);
      EXPECT_EQ(check(), bytes == 0 ? 0 : -1) << body;
    }
  }
}

TEST_F(SizeCheck, ReadsALongLineOfDfInPieces) {
  build(0, 1);
  const Tool df("df", "echo heading; printf 'a 1 1 %04100d5 1% /\\n' 0");
  EXPECT_EQ(check(), -1);  // the number's last digit comes with the next piece
}

TEST_F(SizeCheck, NeedsAPath) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_tbx_check_file_size(nullptr), -1);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: parameter is null "));
}

TEST_F(SizeCheck, UnpacksWithArWithoutAShell) {
  const Tool ar("ar", "exit 3");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_tbx_check_file_size("a b;$(id).tbx"), 3);
  EXPECT_EQ(ar.runs(), "x a b;$(id).tbx\n");
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: tbx extract error - 3 "));
}

TEST_F(SizeCheck, ReturnsHowArEnds) {
  const Redirect errors(STDERR_FILENO, "/dev/null");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(check(), 9);  // no such file
  write_file("app.tbx", "text");
  EXPECT_EQ(check(), 1);  // not an archive
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: tbx extract error - 9 ",
                          "debug: tq_tbx_check_file_size: tbx extract error - 1 "));
  const Tool killed("ar", "kill -9 $$");
  EXPECT_EQ(check(), 9);
}

TEST_F(SizeCheck, FailsInAProcessThatIgnoresSigchld) {
  build(100, 2000);
  ::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(check_with_free(1 << 20), ECHILD);
  ::signal(SIGCHLD, SIG_DFL);
  EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
}

TEST_F(SizeCheck, RunsTheToolsByTheirNames) {
  build(1, 1);
  std::vector<std::string> commands;
  Hook popen("popen", [&](const char* command, const char* mode) {
    commands.emplace_back(command);
    return ::popen(command, mode);
  });
  check();
  EXPECT_THAT(commands, ElementsAre("tar ztvf control.tar.gz", "tar ztvf data.tar.gz", "df"));
}

TEST_F(SizeCheck, MeasuresAMissingMemberAs0) {
  const Redirect errors(STDERR_FILENO, "/dev/null");
  write_file("data", std::string(1025, 'd'));
  work_.shell("tar czf data.tar.gz ./data; ar rc app.tbx data.tar.gz; rm data data.tar.gz");
  EXPECT_EQ(check_with_free(1024), -1);
  EXPECT_EQ(check_with_free(2048), 0);
}

TEST_F(SizeCheck, FailsWhenAListingCannotBeSplit) {
  build(1, 1);
  const Tool df("df", df_of("1000"));
  for (const char* member : {"control.tar.gz", "data.tar.gz"}) {
    for (const char* line : {"one two", "", "   ", "-rw-r--r-- root/root"}) {
      const Tool tar("tar", std::string("[ $2 != ") + member + " ] || echo '" + line +
                                "'; echo -rw root/root 1 date time name");
      const LogCapture log(TQ_LOG_DEBUG);
      EXPECT_EQ(check(), -1) << line;
      EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
    }
  }
}

// Each piece of a longer line counts as a line.
TEST_F(SizeCheck, ReadsALongLineOfAListingInPieces) {
  build(1, 1);
  const Tool df("df", df_of("1000"));
  const Tool no_words("tar", "printf -- '-rw root/root 1 date time %05000d\\n' 0");
  EXPECT_EQ(check(), -1);
  const Tool words("tar", "printf -- '-rw root/root 1 date time %04069d a b 999999999 c\\n' 0");
  EXPECT_EQ(check(), -1);
}

TEST_F(SizeCheck, AddsIn32Bits) {
  build(1, 1);
  const Tool df("df", df_of("1000"));
  const auto check_sizes = [](const std::string& sizes) {
    const Tool tar("tar", "[ $2 = control.tar.gz ] || for n in " + sizes +
                              "; do echo -rw root/root $n date time name; done");
    return check();
  };
  EXPECT_EQ(check_sizes("2147483647 1"), -1);                 // a negative sum
  EXPECT_EQ(check_sizes("2147483647 2147483647 2 1000"), 0);  // wraps around to 1000
  EXPECT_EQ(check_sizes("2147483647 2147483647 2 2000000"), -1);
  EXPECT_EQ(check_sizes("99999999999999999999"), -1);
  const Tool tar("tar",
                 "[ $2 = control.tar.gz ] && n=-1 || n=1; echo -rw root/root $n date time name");
  EXPECT_EQ(check(), -1);
}

// With 1000 KiB free, of one file of this size: what the check says, and what it counts.
TEST_F(SizeCheck, WrapsTheSizeOfAMember) {
  build(1, 1);
  const Tool df("df", df_of("1000"));
  const struct {
    const char* size;
    int result;
    std::vector<const char*> counted;
  } rows[] = {
      {"2147483648", -1, {}},          {"3000000000", -1, {}},   {"4294967295", -1, {}},
      {"4294967296", 0, {"0"}},        {"4294967297", 0, {"1"}}, {"5000000000", -1, {"705032704"}},
      {"9999999999999999999", -1, {}},
  };
  for (const auto& row : rows) {
    const Tool tar("tar", "[ $2 = control.tar.gz ] || echo -rw root/root " + std::string(row.size) +
                              " date time name");
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(check(), row.result) << row.size;
    std::vector<std::string> expected;
    for (const std::string counted : row.counted) {
      expected.push_back("debug: tq_tbx_check_file_size: total=[" + counted +
                         "] bytes, control=[0] bytes, data=[" + counted +
                         "] bytes, disk=[1024000] bytes ");
    }
    EXPECT_EQ(unit_messages(log, kUnit), expected) << row.size;
  }
}

TEST_F(SizeCheck, WrapsTheFreeSpaceOfALargeDisk) {
  build(100, 2000);
  constexpr int64_t kMiB = int64_t{1} << 20;
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(check_with_free(2048 * kGiB + kMiB), 0);
  EXPECT_EQ(check_with_free(4096 * kGiB), -1);
  EXPECT_EQ(check_with_free(4096 * kGiB + kMiB), 0);
  const std::string before =
      "debug: tq_tbx_check_file_size: total=[2100] bytes, control=[100] bytes, data=[2000] bytes, "
      "disk=[";
  EXPECT_THAT(
      unit_messages(log, kUnit),
      ElementsAre(before + "1048576] bytes ", before + "0] bytes ", before + "1048576] bytes "));
}

TEST_F(SizeCheck, ReadsOnAfterASignal) {
  build(1, 1);
  const Interruption interruption;
  const std::string interrupt = Interruption::commands();
  {
    const Tool df("df", df_of("1"));
    const Tool tar("tar", "[ $2 = control.tar.gz ] || echo -rw root/root 1000 date time name; " +
                              interrupt + "echo -rw root/root 2000 date time name");
    EXPECT_EQ(check(), -1);
    EXPECT_EQ(Interruption::count, 2);
  }
  const Tool df("df", "echo heading; " + interrupt + "echo a 1 1 100 1% /");
  EXPECT_EQ(check(), 0);
  EXPECT_EQ(Interruption::count, 3);
}

TEST_F(SizeCheck, PassesWhenTheTotalWrapsAround) {
  build(1, 1);
  const Tool df("df", df_of("1"));
  const Tool tar("tar",
                 "if [ $2 = control.tar.gz ]; then n=1; else n=2147483647; fi; "
                 "echo -rw root/root $n date time name");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(check(), 0);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: total=[-2147483648] bytes, control=[1] "
                          "bytes, data=[2147483647] bytes, disk=[1024] bytes "));
}

TEST_F(SizeCheck, ReadsAWordThatIsNotANumberAs0) {
  build(1, 1);
  const Tool df("df", df_of("1"));
  const Tool tar("tar", "echo -rw root/root word; echo -rw root/root 12x; echo a b -5");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(check(), 0);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_check_file_size: total=[14] bytes, control=[7] bytes, "
                          "data=[7] bytes, disk=[1024] bytes "));
}

TEST_F(SizeCheck, FailsWhenAToolCannotBeStarted) {
  build(0, 0);
  const Tool df("df", df_of("1000"));
  for (int failing = 1; failing <= 3; ++failing) {
    int call = 0;
    Hook popen("popen", [&](const char* command, const char* mode) -> FILE* {
      return ++call == failing ? nullptr : ::popen(command, mode);
    });
    EXPECT_EQ(check(), -1);
    EXPECT_EQ(call, failing);
  }
}

TEST_F(SizeCheck, FailsWhenAToolsOutputCannotBeRead) {
  build(1, 1);
  const Tool df("df", df_of("1000"));
  bool happened = true;
  for (int failing = 1; happened; ++failing) {
    int call = 0;
    Hook read("read", [&](int fd, void* buffer, size_t size) -> ssize_t {
      if (++call != failing) return ::read(fd, buffer, size);
      errno = EIO;
      return -1;
    });
    const int result = check();
    happened = call >= failing;
    EXPECT_EQ(result, happened ? -1 : 0) << failing;
  }
}

TEST_F(SizeCheck, FailsWithoutMemory) {
  build(1, 1);
  const Tool df("df", df_of("1000"));
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const FailAlloc fail(n);
    const int result = check();
    happened = fail.happened();
    EXPECT_EQ(result, happened ? -1 : 0) << n;
    EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
  }
  EXPECT_EQ(n, 8);  // two for each of three lines; the seventh run succeeds
}

TEST_F(SizeCheck, RemovesItsThreeMembersInEveryCase) {
  build(100, 2000);
  const Redirect errors(STDERR_FILENO, "/dev/null");
  const auto leaves_nothing = [&](const std::string& path) {
    for (const char* member : {"control.tar.gz", "data.tar.gz", "debian-binary"}) {
      write_file(member, "from before");
    }
    tq_tbx_check_file_size(path.c_str());
    EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
  };
  leaves_nothing("app.tbx");
  leaves_nothing("missing.tbx");
  {
    const Tool df("df", "true");
    leaves_nothing("app.tbx");
  }
  {
    const Tool df("df", df_of("3000000"));
    leaves_nothing("app.tbx");
  }
  const Tool tar("tar", "echo one");
  leaves_nothing("app.tbx");
}

TEST_F(SizeCheck, RemovesNothingWithoutAPath) {
  write_file("data.tar.gz", "from before");
  tq_tbx_check_file_size(nullptr);
  EXPECT_TRUE(work_.has("data.tar.gz"));
}

TEST_F(SizeCheck, EndsWhileAToolIsStillPrinting) {
  build(1, 1);
  const Tool tar("tar", "echo one; while echo two words; do :; done");
  EXPECT_EQ(check(), -1);
}

TEST_F(SizeCheck, LeavesNoDescriptorOpen) {
  build(1, 1);
  const Descriptors before = open_descriptors();
  check();
  const Tool tar("tar", "echo one");
  check();
  EXPECT_THAT(opened_since(before), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
