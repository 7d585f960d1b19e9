// The manual page of the operator's tool.
#include "commands/manual.h"

#include <gtest/gtest.h>

#include "process/failure.h"

namespace client {
namespace {

TEST(FleetManual, ShowsTheUsageOfEveryCommand) { expect_usage_of_every_command(); }

TEST(FleetManual, HasAnEntryForEveryCommand) { expect_entry_for_every_command(); }

TEST(FleetManual, HasAnEntryForEveryOptionAndForNoOther) { expect_entry_for_every_option(); }

TEST(FleetManual, HasAnEntryForEveryExitStatus) {
  expect_entries_for_statuses({kDone, kFailed, kTimeout, kNoMatch, kUsage});
}

}  // namespace
}  // namespace client
