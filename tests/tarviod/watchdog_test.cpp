// When the manager feeds the supervisor's watchdog, with a clock of the test's own.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "supervision/notify.h"
#include "supervision/watchdog.h"
#include "support/com/manager.h"
#include "support/programs/supervisor.h"
#include "tarvio/app.h"

namespace {

time_t seconds_passed = 0;

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
  if (clock == CLOCK_MONOTONIC) time->tv_sec += seconds_passed;
  return result;
}

namespace tarvio_test {
namespace {

constexpr char kPeriod[] = "20000000";  // fed every ten seconds

class Watchdog : public testing::Test {
 protected:
  void SetUp() override {
    ::setenv("NOTIFY_SOCKET", supervisor_.name().c_str(), 1);
    ::setenv("WATCHDOG_USEC", kPeriod, 1);
    last_ = &supervisor_;
  }

  // Whether the watchdog is fed when this time has passed.
  static bool is_fed_after(int seconds) {
    seconds_passed += seconds;
    (void)tarviod::feed_watchdog();
    return last_->next_if_any() == "WATCHDOG=1";
  }

 private:
  static inline const Supervisor* last_ = nullptr;
  const Supervisor supervisor_;
};

TEST_F(Watchdog, IsFedAtHalfThePeriod) {
  tarviod::meet_supervisor();
  EXPECT_TRUE(is_fed_after(0));
  EXPECT_FALSE(is_fed_after(9));
  EXPECT_TRUE(is_fed_after(1));
  EXPECT_FALSE(is_fed_after(9));
  EXPECT_TRUE(is_fed_after(1));
  EXPECT_GT(tarviod::feed_watchdog().remaining_ms(), 9000);
}

TEST_F(Watchdog, IsFedAsLongAsAStepMayLast) {
  tarviod::meet_supervisor();
  tarviod::begin_step();
  EXPECT_TRUE(is_fed_after(10));
  EXPECT_TRUE(is_fed_after(10));
  EXPECT_TRUE(is_fed_after(10));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(is_fed_after(10));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tarviod: watchdog: not fed: a request or an application takes too long\n");
  tarviod::begin_step();
  EXPECT_TRUE(is_fed_after(10));
  EXPECT_TRUE(is_fed_after(10));
  tarviod::end_steps();
  EXPECT_TRUE(is_fed_after(100));
}

// As an application that may take its time to stop.
TEST_F(Watchdog, IsFedAsLongAsALongStepMayLast) {
  tarviod::meet_supervisor();
  tarviod::begin_step(100);
  EXPECT_TRUE(is_fed_after(90));
  EXPECT_FALSE(is_fed_after(20));
}

TEST_F(Watchdog, OfAnotherProcessIsNotFed) {
  ::setenv("WATCHDOG_PID", "1", 1);
  tarviod::meet_supervisor();
  EXPECT_FALSE(is_fed_after(100));
  EXPECT_FALSE(tarviod::feed_watchdog().is_set());
}

TEST_F(Watchdog, CausesNoWaitWhenThereIsNone) {
  ::unsetenv("WATCHDOG_USEC");
  tarviod::meet_supervisor();
  EXPECT_FALSE(is_fed_after(100));
  EXPECT_FALSE(tarviod::feed_watchdog().is_set());
}

}  // namespace
}  // namespace tarvio_test
