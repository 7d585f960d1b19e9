// Clients of tarviod that let it wait.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <csignal>
#include <deque>
#include <filesystem>
#include <string>
#include <thread>

#include "support/apps/applications.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarviod.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

bool is_open(const Socket& client) {
  pollfd file = {.fd = client.fd(), .events = POLLRDHUP, .revents = 0};
  return ::poll(&file, 1, 0) == 0;
}

// With a clock that stands still unless the test sets it.
class TarviodClients : public testing::Test {
 protected:
  TarviodClients() { EXPECT_TRUE(manager_.answers()); }

  void set_clock(int seconds) const { write_file(clock_, std::to_string(seconds)); }
  void let_clock_run() const { std::filesystem::remove(clock_); }
  // The manager has seen everything that came before.
  static void expect_answer() { EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nno\n"), "22\n\n"); }

  Tarviod& manager() { return manager_; }

 private:
  static std::string prepare(const std::string& clock) {
    install_application("clock");
    write_file(clock, "0");
    return clock;
  }

  const TempDir directory_;
  const std::string clock_ = prepare(directory_ / "clock");
  Tarviod manager_{{}, with_module(TARVIOD_LATE_CLOCK, clock_)};
};

TEST_F(TarviodClients, LearnItsVersion) {
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "version\n"), "0\n" TARVIO_VERSION "\n");
}

TEST_F(TarviodClients, AreAnsweredAfterThreeHundredSilentOnes) {
  std::deque<Socket> silent;
  while (silent.size() < 300) silent.push_back(connect_to(TQ_COM_SOCKET_PATH));
  expect_answer();
  EXPECT_FALSE(is_open(silent[300 - 64]));  // gave its place to the one that was answered
  EXPECT_TRUE(is_open(silent[300 - 63]));   // has all of its time left
}

TEST_F(TarviodClients, AreAnsweredBesideOnesThatSendWithoutAnEnd) {
  const Socket endless = connect_to(TQ_COM_SOCKET_PATH);
  endless.send("start_app\nclock\n");
  expect_answer();
  EXPECT_TRUE(is_open(endless));
}

TEST_F(TarviodClients, AreLeftFiveSecondsAfterTheyHaveConnected) {
  const Socket silent = connect_to(TQ_COM_SOCKET_PATH);
  expect_answer();
  set_clock(4);
  expect_answer();
  EXPECT_TRUE(is_open(silent));
  set_clock(5);
  EXPECT_EQ(silent.read_to_end(), "");
}

TEST_F(TarviodClients, AreNotObeyedBeforeTheEndOfTheirRequest) {
  const Socket endless = connect_to(TQ_COM_SOCKET_PATH);
  endless.send("start_app\nclock\n");
  expect_answer();
  set_clock(5);
  EXPECT_EQ(endless.read_to_end(), "");
  EXPECT_EQ(status_of("clock"), "");
}

TEST_F(TarviodClients, AreServedAtOnceWithoutTheEndOfALongRequest) {
  const Socket endless = connect_to(TQ_COM_SOCKET_PATH);
  endless.send("start_app\nclock\n" + std::string(508, '\n'));
  EXPECT_EQ(endless.read_to_end(), "0\n\n");
}

TEST_F(TarviodClients, MaySendMoreThanTheSocketHolds) {
  let_clock_run();
  const Socket client = connect_to(TQ_COM_SOCKET_PATH);
  std::thread sender([&] {
    const std::string line(4096, '\n');
    (void)::send(client.fd(), "start_app\nclock\n", 16, MSG_NOSIGNAL);
    while (::send(client.fd(), line.data(), line.size(), MSG_NOSIGNAL) >= 0) continue;
  });
  EXPECT_EQ(client.read_to_end(), "0\n\n");
  sender.join();
}

TEST_F(TarviodClients, HoldTheEndBackForFiveSecondsAtMost) {
  const Socket silent = connect_to(TQ_COM_SOCKET_PATH);
  expect_answer();
  manager().send(SIGTERM);
  set_clock(5);
  EXPECT_EQ(manager().end(), 0);
  EXPECT_FALSE(is_open(silent));
}

}  // namespace
}  // namespace tarvio_test
