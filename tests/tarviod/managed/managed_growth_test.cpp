// What requests and starts leave in the manager and its keeper: nothing. The benchmarks count more
// of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>

#include "managed.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"

namespace tarvio_test {
namespace {

constexpr int kWarmUp = 1000;
constexpr int kRequests = 10'000;  // a record left by each is 1 MiB
constexpr int kFirstStarts = 50;
constexpr int kStarts = 300;
constexpr long kPagesKib = 256;  // what the heap takes at once

long own_memory_kib(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  long kib = -1;
  for (std::string line; std::getline(status, line);)
    (void)std::sscanf(line.c_str(), "RssAnon: %ld", &kib);
  return kib;
}

class ManagedGrowth : public Managed {
 protected:
  void SetUp() override {
    install("clock", "exit 0");
    install("radio", kStays);
    start_manager();
    EXPECT_EQ(start("radio"), kDone);
  }

  static void ask_for_statuses(int count) {
    for (int at = 0; at < count; ++at)
      ASSERT_THAT(request("status_all\n"), testing::HasSubstr(kStarted));
  }
  static void start_clock(int count) {
    ASSERT_TRUE(eventually([&] {
      EXPECT_EQ(start("clock"), kDone);
      return published("clock").starts >= count;
    }));
    EXPECT_TRUE(becomes("clock", "ended"));
  }
  void remember() {
    for (const pid_t process : {manager_->pid(), keeper_process()})
      before_[process] = {own_memory_kib(process), count_descriptors(process)};
  }
  void expect_no_growth() const {
    for (const auto& [process, was] : before_) {
      const pid_t pid = process;
      EXPECT_LT(own_memory_kib(pid) - was.kib, kPagesKib);
      const long most = was.descriptors;  // a client that was just answered may be among them
      EXPECT_TRUE(eventually([&] { return count_descriptors(pid) <= most; }))
          << count_descriptors(pid) << " descriptors after " << most;
    }
  }

 private:
  struct Figures {
    long kib;
    long descriptors;
  };
  std::map<pid_t, Figures> before_;
};

TEST_F(ManagedGrowth, IsNotWhatStatusRequestsDo) {
  ask_for_statuses(kWarmUp);
  remember();
  ask_for_statuses(kRequests);
  expect_no_growth();
}

TEST_F(ManagedGrowth, IsNotWhatStartsDo) {
  start_clock(kFirstStarts);
  remember();
  start_clock(kFirstStarts + kStarts);
  expect_no_growth();
}

}  // namespace
}  // namespace tarvio_test
