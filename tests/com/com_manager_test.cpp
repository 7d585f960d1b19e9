#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "support/com/manager.h"
#include "support/com/sockets.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "com/tq_com_manager";

TEST(ComManager, AnswersOnItsSocketWhateverTheUmask) {
  umask(077);
  const ManagerProcess manager({{"clock"}, {"webserver"}});
  EXPECT_EQ(fs::status(TQ_COM_SOCKET_PATH).permissions(), fs::perms(0666));
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_all\n"), "0\n\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "status_all\n"),
            "clock\n0\nstarted app\nwebserver\n0\nstarted app\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "stop_app\nweb\n"), "0\n\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nno-such\n"), "22\n\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "status_app\nwebserver\n"), "clock\n0\nstarted app\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "stop_all\n"), "0\n");
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "status_all\n"), "");
}

TEST(ComManager, TakesTheSocketOverFromOneThatIsGone) {
  { const ManagerProcess first({{"clock"}}); }
  EXPECT_TRUE(fs::is_socket(TQ_COM_SOCKET_PATH));  // its file stays
  const ManagerProcess second({{"clock"}});
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "stop_all\n"), "0\n");
}

TEST(ComManager, WithoutASocketGivesItsValue) {
  const LogCapture log;
  const Hook hook(
      "socket", +[](int, int, int) {
        errno = EMFILE;
        return -3;
      });
  EXPECT_EQ(tq_setup_com_manager(), -3);
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("warning: com server startup failed."));
}

TEST(ComManager, ThatCannotListenDoesNotAnswer) {
  const LogCapture log;
  const Hook hook(
      "listen", +[](int, int) { return -1; });
  EXPECT_EQ(tq_setup_com_manager(), -1);
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("warning: com server startup failed."));
}

TEST(ComManager, WithoutAThreadGivesTheResultOfPthreadCreate) {
  const LogCapture log;
  const Hook hook(
      "pthread_create",
      +[](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) { return EAGAIN; });
  EXPECT_EQ(tq_setup_com_manager(), EAGAIN);
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
