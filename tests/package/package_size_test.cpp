#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "package_size.h"
#include "support/children.h"
#include "support/files.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "package/tq_tbx_package_binding";
constexpr int64_t kGiB = int64_t{1} << 30;

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

}  // namespace
}  // namespace tarvio_test
