// The log manager on a status manager that fails, which the library's own never does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "tarvio/error.h"
#include "tarvio/log.h"
#include "tarvio/log_monitor.h"
#include "tarvio/status_manager.h"

int tq_set_status2(const tq_status* /*status*/, int32_t /*force*/) { return TQ_ERR_STATUS_MEMORY; }

namespace tarvio_test {
namespace {

TEST(StatusByLogThatFails, IsLoggedAndReturned) {
  const LogCapture log;
  EXPECT_EQ(tq_change_status_by_log("clock", 2, "no battery"), TQ_ERR_STATUS_MEMORY);
  EXPECT_THAT(log.messages(TQ_LOG_ERROR),
              testing::ElementsAre(
                  "tq_change_status_by_log: _Tarvio status utility memory allocation failed. "));
  EXPECT_EQ(log.records().at(0).unit, "log/tq_log_manager");
}

}  // namespace
}  // namespace tarvio_test
