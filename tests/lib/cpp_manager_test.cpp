// manager.hpp: requests to the resident manager, and what their results say.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <system_error>
#include <vector>

#include "support/com/manager.h"
#include "support/com/one_reply.h"
#include "support/com/sockets.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "tarvio/tarvio.h"
#include "tarvio/tarvio.hpp"

namespace tarvio {

static bool operator==(const Status& a, const Status& b) {
  return a.name == b.name && a.state == b.state && a.detail == b.detail;
}

}  // namespace tarvio

namespace tarvio_test {
namespace {

using tarvio::Manager;
using tarvio::State;
using tarvio::Status;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr tq_com_word kExactWords[] = {{"start_exact", tq_start_app_exact, nullptr},
                                       {"stop_exact", tq_stop_app_exact, nullptr},
                                       {nullptr, nullptr, nullptr}};

// The error of a call whose manager gives this reply.
std::error_code error_after(const std::string& reply) {
  const OneReply manager(reply);
  return Manager().start("clock");
}

TEST(CppManager, StartsAndStopsTheApplicationOfExactlyThisName) {
  const ManagerProcess process({{"webserver"}, {"web"}}, [] { tq_set_com_words(kExactWords); });
  const Manager manager;
  std::error_code error;
  EXPECT_FALSE(manager.start("web"));
  EXPECT_THAT(manager.statuses(error), ElementsAre(Status{"web", State::kNormal, "started app"}));
  EXPECT_FALSE(manager.stop("web"));
  EXPECT_THAT(manager.statuses(error), IsEmpty());
  EXPECT_FALSE(error);
}

TEST(CppManager, ReturnsTheCodeOfTheManager) {
  const ManagerProcess process({{"webserver"}}, [] { tq_set_com_words(kExactWords); });
  EXPECT_EQ(Manager().start("web"), std::errc::invalid_argument);
  EXPECT_EQ(Manager().stop("web").value(), 22);
}

TEST(CppManager, StartsAndStopsAll) {
  const ManagerProcess process({{"clock"}, {"radio"}});
  const Manager manager;
  std::error_code error;
  EXPECT_FALSE(manager.start_all());
  EXPECT_EQ(manager.application_statuses(error).size(), 2U);
  EXPECT_FALSE(manager.stop_all());
  EXPECT_THAT(manager.application_statuses(error), IsEmpty());
}

TEST(CppManager, AsksForARefresh) {
  OneReply manager("0\nadded 1\nremoved 0\nchanged 0\n");
  EXPECT_FALSE(Manager().refresh());
  EXPECT_EQ(manager.request(), "refresh_apps\n");
}

TEST(CppManager, KeepsLongLinesWhole) {
  const std::string detail(1000, 'd');
  const OneReply manager("clock\n1\n" + detail + "\nweb\n-7\n\n");
  std::error_code error;
  EXPECT_THAT(Manager().statuses(error), ElementsAre(Status{"clock", State::kWarning, detail},
                                                     Status{"web", static_cast<State>(-7), ""}));
  EXPECT_FALSE(error);
}

TEST(CppManager, KeepsTheStatusesBeforeACutAndReportsIt) {
  for (const std::string cut :
       {"web", "web\n", "web\n2", "web\n2\n", "web\n2\nfail", "web\ntwo\nx\n"}) {
    const OneReply manager("clock\n0\nstarted app\n" + cut);
    std::error_code error;
    EXPECT_THAT(Manager().statuses(error),
                ElementsAre(Status{"clock", State::kNormal, "started app"}));
    EXPECT_EQ(error, std::errc::protocol_error) << cut;
  }
}

TEST(CppManager, TakesNoReplyButAWholeNumberForSuccess) {
  for (const std::string reply : {"", "0", "\n", "x\n", "0 \n", "99999999999\n"}) {
    EXPECT_EQ(error_after(reply), std::errc::protocol_error) << reply;
  }
  EXPECT_FALSE(error_after("0\n"));
  EXPECT_EQ(error_after("10305\n\n"), tarvio::Errc::kPackageOther);
}

TEST(CppManager, SaysThatNoManagerRuns) {
  const LogCapture log;
  std::error_code error;
  EXPECT_EQ(Manager().start("clock"), std::errc::not_connected);
  EXPECT_THAT(Manager().statuses(error), IsEmpty());
  EXPECT_EQ(error, std::errc::not_connected);
  { const Socket ended = listen_on(TQ_COM_SOCKET_PATH); }
  EXPECT_EQ(Manager().stop_all(), std::errc::not_connected);
}

TEST(CppManager, WaitsForASilentManagerNoLongerThanItsTimeout) {
  const Socket listener = listen_on(TQ_COM_SOCKET_PATH, 0);
  const Manager manager(std::chrono::milliseconds(-500));  // over before it began
  EXPECT_EQ(manager.start("clock"), std::errc::timed_out);
  const LogCapture log;
  EXPECT_EQ(manager.start("clock"), std::errc::timed_out);  // the first one fills the backlog
}

TEST(CppManager, ReportsWhyThereIsNoSocket) {
  const Hook hook(
      "socket", +[](int, int, int) {
        errno = EMFILE;
        return -1;
      });
  const LogCapture log;
  EXPECT_EQ(Manager().start("clock"), std::errc::too_many_files_open);
}

TEST(CppManager, AsksForNoNameThatTheProtocolWouldCut) {
  const Socket listener = listen_on(TQ_COM_SOCKET_PATH);
  for (const std::string& name :
       {std::string("clock\nx"), std::string("clock\r"), std::string("clock\0x", 7)}) {
    EXPECT_EQ(Manager().start(name), std::errc::invalid_argument);
  }
  const Socket first = connect_to(TQ_COM_SOCKET_PATH);
  first.end_sending();
  EXPECT_EQ(accept_on(listener).read_to_end(), "");  // the first one to connect
}

TEST(CppManager, ClosesItsSockets) {
  const LogCapture log;
  const long before = count_descriptors();
  EXPECT_TRUE(Manager().start("clock"));
  EXPECT_TRUE(error_after(""));
  EXPECT_EQ(count_descriptors(), before);
}

}  // namespace
}  // namespace tarvio_test
