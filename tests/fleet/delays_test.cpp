// How a fleet comes back to its broker.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "fleet/session.h"

namespace tarvio_test {
namespace {

TEST(FleetDelays, SpreadAFleetAfterALoss) {
  std::vector<int> seconds(30);
  for (uint32_t board = 0; board < 10'000; ++board) {
    const int delay = fleet::Delays(board).first_ms();
    ASSERT_GE(delay, 0);
    ASSERT_LE(delay, 30'000);
    ++seconds[static_cast<size_t>(std::min(delay / 1000, 29))];
  }
  // 333 each, if they were spread evenly.
  EXPECT_GT(*std::min_element(seconds.begin(), seconds.end()), 250);
  EXPECT_LT(*std::max_element(seconds.begin(), seconds.end()), 420);
}

TEST(FleetDelays, GrowUpToAMinute) {
  fleet::Delays delays(1);
  for (const int longest : {2000, 4000, 8000, 16'000, 32'000, 60'000, 60'000}) {
    const int delay = delays.next_ms();
    EXPECT_GE(delay, longest / 2);
    EXPECT_LE(delay, longest);
  }
}

TEST(FleetDelays, BeginAgainAfterAConnection) {
  fleet::Delays delays(1);
  for (int tries = 0; tries < 10; ++tries) (void)delays.next_ms();
  (void)delays.first_ms();
  EXPECT_LE(delays.next_ms(), 10'000);
}

}  // namespace
}  // namespace tarvio_test
