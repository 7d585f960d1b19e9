#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/com/manager.h"
#include "support/com/one_reply.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/live_allocations.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;

struct Call {
  const char* request;
  int (*make)();
};

const Call kCalls[] = {
    {"start_app\nclock\n", [] { return tq_lib_start_app("clock"); }},
    {"stop_app\nclock\n", [] { return tq_lib_stop_app("clock"); }},
    {"start_all\n", [] { return tq_lib_start_all_app(); }},
    {"stop_all\n", [] { return tq_lib_stop_all_app(); }},
    {"start_app\n\n", [] { return tq_lib_start_app(""); }},
    {"start_app\n", [] { return tq_lib_start_app(nullptr); }},
    {"stop_app\n", [] { return tq_lib_stop_app(nullptr); }},
};

TEST(ClientApp, AsksTheManager) {
  for (const Call& call : kCalls) {
    OneReply manager("0\n\n");
    EXPECT_EQ(call.make(), 0);
    EXPECT_EQ(manager.request(), call.request);
  }
}

TEST(ClientApp, ReturnsZeroWhateverTheManagerAnswers) {
  for (const char* reply : {"22\n\n", "115\n", "", "0", "text"}) {
    for (const Call& call : kCalls) {
      const OneReply manager(reply);
      EXPECT_EQ(call.make(), 0);
    }
  }
}

TEST(ClientApp, ReturnsZeroWithoutAManager) {
  for (const Call& call : kCalls) EXPECT_EQ(call.make(), 0);
}

TEST(ClientApp, ReturnsZeroWithoutASocket) {
  const Hook hook(
      "socket", +[](int, int, int) {
        errno = EMFILE;
        return -1;
      });
  for (const Call& call : kCalls) EXPECT_EQ(call.make(), 0);
}

TEST(ClientApp, LeavesNothingBehind) {
  const long before = count_descriptors();
  const LiveAllocations live;
  for (const Call& call : kCalls) {
    OneReply manager("0\n\n");
    call.make();
    manager.request();
  }
  for (const Call& call : kCalls) call.make();
  EXPECT_EQ(live.count(), 0);
  EXPECT_EQ(count_descriptors(), before);
}

TEST(ClientApp, WaitsUntilTheManagerHasAnswered) {
  const ManagerProcess manager({{"clock"}});
  EXPECT_EQ(tq_lib_start_app("clock"), 0);
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "status_all\n"), "clock\n0\nstarted app\n");
  EXPECT_EQ(tq_lib_stop_app("no such application"), 0);
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "status_all\n"), "clock\n0\nstarted app\n");
}

}  // namespace
}  // namespace tarvio_test
