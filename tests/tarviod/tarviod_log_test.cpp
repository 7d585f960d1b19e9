// What tarviod prints and logs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/children.h"
#include "support/com/sockets.h"
#include "support/programs/system_log.h"
#include "support/programs/tarviod.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::Conditional;
using testing::HasSubstr;
using testing::Not;

TEST(TarviodLog, PrintsDebugMessagesAtLevel0Only) {
  for (const char* level : {"0", "1"}) {
    Tarviod manager({"--log-level", level});
    ASSERT_TRUE(manager.answers());
    EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "status_all\n"), "");
    const bool debug = *level == '0';
    EXPECT_THAT(
        manager.output(),
        Conditional(debug, HasSubstr("receive line status_all -  com/"),
                    "tarviod: 0 applications installed, answering on " TQ_COM_SOCKET_PATH "\n"));
  }
}

TEST(TarviodLog, LogsItsStartAtLevel1) {
  const SystemLog log;
  Tarviod manager({"-l1"});
  ASSERT_TRUE(manager.answers());
  // It is printed first.
  std::string logged;
  EXPECT_TRUE(eventually([&] { return !(logged += log.text()).empty(); }));
  EXPECT_THAT(logged, HasSubstr("tarvio: 0 applications installed, answering on " TQ_COM_SOCKET_PATH
                                " -  tarviod "));
}

TEST(TarviodLog, LogsWarningsButNotItsStartByDefault) {
  fs::remove("/usr/lib/opkg/info");
  const SystemLog log;
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  const std::string text = log.text();
  EXPECT_THAT(text, HasSubstr("tarvio: /usr/lib/opkg/info: No such file or directory: no "
                              "application is known -  tarviod "));
  EXPECT_THAT(text, Not(HasSubstr("answering on")));
}

// In the background nobody sees its output.
TEST(TarviodLog, LogsByDefaultThatItReadItsConfigurationAgain) {
  const SystemLog log;
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  manager.send(SIGHUP);
  std::string logged;
  EXPECT_TRUE(eventually([&] {
    // ThreadSanitizer lets a signal that meets the com server's thread wait for the next request.
    (void)ask(TQ_COM_SOCKET_PATH, "status_all\n");
    return (logged += log.text()).find("tarviod.conf: read again") != std::string::npos;
  })) << logged;
}

TEST(TarviodLog, LogsNothingAtLevel4) {
  fs::remove("/usr/lib/opkg/info");
  const SystemLog log;
  Tarviod manager({"--log-level=4"});
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(log.text(), "");
}

TEST(TarviodLog, SurvivesWhenNobodyReadsItsOutput) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  Tarviod manager({"--log-level", "0"}, [&] { ::dup2(ends[1], STDOUT_FILENO); });
  ::close(ends[1]);
  std::string output;
  char bytes[4096];
  while (output.find("answering on") == std::string::npos) {
    const ssize_t count = ::read(ends[0], bytes, sizeof bytes);
    ASSERT_GT(count, 0);
    output.append(bytes, static_cast<size_t>(count));
  }
  ::close(ends[0]);
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "22\n\n");
  EXPECT_EQ(listening_process(), manager.pid());
}

}  // namespace
}  // namespace tarvio_test
