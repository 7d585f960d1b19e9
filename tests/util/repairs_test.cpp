// What a host switches off in this room; without it, process_test.cpp and boot_test.cpp hold.
#include "tarvio/repairs.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "created_process.h"
#include "support/children.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/got_hook.h"
#include "support/repairs.h"
#include "tarvio/opkg.h"
#include "tarvio/process.h"

namespace tarvio_test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

size_t left_by_a_start() {
  const Descriptors before = open_descriptors();
  const Child child = start("true", 0);
  EXPECT_EQ(exit_status_of(child.pid), 0);
  return opened_since(before).size();
}

TEST(Repairs, AreAllOfTheFlags) {
  EXPECT_EQ(TQ_REPAIR_ALL, TQ_REPAIR_STATUS_RECORDS | TQ_REPAIR_PROCESSES | TQ_REPAIR_BOOT_TEST |
                               TQ_REPAIR_RETRIES);
}

TEST(Repairs, AreReplacedByTheNextCall) {
  const Repairs repairs(TQ_REPAIR_ALL);
  EXPECT_EQ(left_by_a_start(), 0U);
  EXPECT_EQ(tq_set_repairs(0), 0);
  EXPECT_EQ(left_by_a_start(), 2U);
}

TEST(Repairs, AreIndependentOfEachOther) {
  const Repairs repairs(TQ_REPAIR_ALL & ~TQ_REPAIR_PROCESSES);
  EXPECT_EQ(left_by_a_start(), 2U);
}

TEST(Repairs, StayAsTheyAreWithAnUnknownOne) {
  const Repairs repairs(TQ_REPAIR_ALL);
  EXPECT_EQ(tq_set_repairs(TQ_REPAIR_ALL + 1), EINVAL);
  EXPECT_EQ(tq_set_repairs(1U << 31), EINVAL);
  EXPECT_EQ(left_by_a_start(), 0U);
}

class RepairedProcess : public testing::Test {
  const Repairs repairs_{TQ_REPAIR_PROCESSES};
};

TEST_F(RepairedProcess, LeavesTheEndsOfTheCallerAlone) {
  const Descriptors before = open_descriptors();
  const Child child = start("cat", kAllPipes);
  ASSERT_EQ(child.result, 0);
  EXPECT_THAT(opened_since(before), SizeIs(3));
  ::close(child.in);
  EXPECT_EQ(read_to_end(child.out), "");
  EXPECT_EQ(read_to_end(child.err), "");
  EXPECT_EQ(exit_status_of(child.pid), 0);
  EXPECT_THAT(opened_since(before), IsEmpty());
}

TEST_F(RepairedProcess, InheritsNoPipe) {
  const TempDir directory;
  const std::string list = directory / "list";
  write_program(list, "#!/bin/sh\nfor fd in /proc/$$/fd/*; do readlink $fd; done\n");
  std::string before;
  for (const auto& [number, target] : open_descriptors()) before += target + "\n";
  const Child child = start(list.c_str(), TQ_PIPE_STDOUT);
  const std::string seen = read_to_end(child.out);
  size_t pipes = 0;
  for (size_t at = seen.find("pipe:"); at != std::string::npos; at = seen.find("pipe:", at + 1)) {
    const std::string target = seen.substr(at, seen.find('\n', at) - at);
    if (before.find(target + "\n") == std::string::npos) ++pipes;
  }
  EXPECT_EQ(pipes, 1U) << seen;  // its standard output
  end_of(child.pid);
}

class RepairedPipeThatFails : public RepairedProcess, public testing::WithParamInterface<int> {};

TEST_P(RepairedPipeThatFails, EndsTheCallAndClosesEarlierOnes) {
  const int failing = GetParam();
  int pipes = 0;
  int forks = 0;
  const Hook pipe2("pipe2", [&](int* ends, int flags) {
    if (++pipes < failing) return ::pipe2(ends, flags);
    errno = EMFILE;
    return -1;
  });
  const Hook fork("fork", [&]() -> pid_t {
    ++forks;
    return -1;
  });
  const Descriptors before = open_descriptors();
  const Child child = start("true", kAllPipes);
  EXPECT_EQ(child.result, EMFILE);
  EXPECT_EQ(forks, 0);
  EXPECT_EQ(child.pid, kUnwritten);
  EXPECT_THAT(opened_since(before), IsEmpty());
  // The order is: output, input, error.
  EXPECT_EQ(child.out, failing > 1 ? -1 : kUnwritten);
  EXPECT_EQ(child.in, failing > 2 ? -1 : kUnwritten);
  EXPECT_EQ(child.err, kUnwritten);
}

INSTANTIATE_TEST_SUITE_P(Repairs, RepairedPipeThatFails, testing::Range(1, 4));

TEST(RepairedBootTest, ThatCannotReadClosesItsFile) {
  const Repairs repairs(TQ_REPAIR_BOOT_TEST);
  const Hook open("open", [](const char*, int flags) { return ::open("/usr", flags); });
  const Descriptors before = open_descriptors();
  int online = kUnwritten;
  EXPECT_EQ(tq_is_boot_online(&online), EISDIR);
  EXPECT_EQ(online, kUnwritten);
  EXPECT_THAT(opened_since(before), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
