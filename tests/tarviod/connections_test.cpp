// The connections of tarviod's server, with a handler of the test's own.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "server/connections.h"
#include "support/com/sockets.h"
#include "support/files.h"

namespace tarvio_test {
namespace {

using tarvio::Deadline;
using tarviod::Connections;
using Requests = std::vector<std::string>;

Requests served;

uint32_t serve(int32_t fd) {
  served.push_back(Socket(fd).read_to_end());
  return 0;
}

class ConnectionsOfClients : public testing::Test {
 protected:
  ConnectionsOfClients() {
    served.clear();
    connections_.open(listener_.fd(), serve);
    interruption_.send("x");
  }

  // Does one of the things that can be done now; false when there is none.
  bool do_one() {
    Connections::Others others = {{{.fd = interrupted_.fd(), .events = POLLIN, .revents = 0},
                                   {.fd = -1, .events = 0, .revents = 0}}};
    connections_.wait(others, Deadline::never());
    EXPECT_NE(others[0].revents, 0);
    return connections_.advance();
  }
  void advance() {
    while (do_one()) continue;
  }
  // Clients that connect one after the other, each with a part of a request.
  std::deque<Socket> connect(size_t count, const std::string& part = "") {
    std::deque<Socket> clients;
    while (clients.size() < count) {
      clients.push_back(connect_to(path_));
      clients.back().send(part);
      advance();
    }
    return clients;
  }
  static bool is_open(const Socket& client) {
    pollfd file = {.fd = client.fd(), .events = POLLRDHUP, .revents = 0};
    return ::poll(&file, 1, 0) == 0;
  }

  const std::string& path() const { return path_; }

  Connections connections_;

 private:
  const TempDir directory_;
  const std::string path_ = directory_ / "socket";
  const Socket listener_ = listen_on(path_, 128);
  std::pair<Socket, Socket> pair_ = socket_pair();
  const Socket& interruption_ = pair_.first;
  const Socket& interrupted_ = pair_.second;
};

TEST_F(ConnectionsOfClients, AreServedWhenTheirRequestHasEnded) {
  const auto clients = connect(1, "one\n");
  clients[0].send("two\n");
  advance();
  EXPECT_EQ(served, Requests());
  clients[0].end_sending();
  advance();
  EXPECT_EQ(served, Requests{"one\ntwo\n"});
  EXPECT_FALSE(is_open(clients[0]));
}

TEST_F(ConnectionsOfClients, AreServedInTheOrderOfTheirConnections) {
  const auto clients = connect(3);
  for (const size_t at : {2U, 0U, 1U}) {
    clients[at].send(std::to_string(at));
    clients[at].end_sending();
  }
  advance();
  EXPECT_EQ(served, (Requests{"0", "1", "2"}));
}

TEST_F(ConnectionsOfClients, AreServedBeforeOlderOnesThatAreNotComplete) {
  const auto clients = connect(3);
  clients[1].end_sending();
  advance();
  clients[0].send("later");
  clients[0].end_sending();
  advance();
  EXPECT_EQ(served, (Requests{"", "later"}));
}

TEST_F(ConnectionsOfClients, OfWhichTheOldestThatSentNothingIsClosedForANewOne) {
  const auto talking = connect(1, "o");
  const auto silent = connect(Connections::kMax - 1);
  EXPECT_TRUE(is_open(silent[0]));
  const auto more = connect(2);
  EXPECT_TRUE(is_open(talking[0]));
  EXPECT_FALSE(is_open(silent[0]));
  EXPECT_FALSE(is_open(silent[1]));
  EXPECT_TRUE(is_open(silent[2]));
  EXPECT_TRUE(is_open(more[1]));
  EXPECT_EQ(served, Requests());
}

TEST_F(ConnectionsOfClients, OfWhichTheOldestIsClosedWhenAllHaveSentAPart) {
  const auto talking = connect(Connections::kMax, "o");
  const auto late = connect(1);
  EXPECT_FALSE(is_open(talking[0]));
  EXPECT_TRUE(is_open(talking[1]));
  late[0].send("now");
  late[0].end_sending();
  advance();
  EXPECT_EQ(served, Requests{"now"});
}

TEST_F(ConnectionsOfClients, AreNotClosedForANewOneWhenTheyAreComplete) {
  const auto clients = connect(Connections::kMax);
  std::deque<Socket> late;
  for (size_t at = 0; at < Connections::kMax; ++at) {
    late.push_back(new_socket());
    ASSERT_TRUE(try_to_connect(late.back(), path()));
    clients[at].send("request");
    clients[at].end_sending();
  }
  advance();
  EXPECT_EQ(served, Requests(Connections::kMax, "request"));
  for (const Socket& each : late) EXPECT_TRUE(is_open(each));
}

TEST_F(ConnectionsOfClients, MakeRoomForANewOneWhenDescriptorsRunOut) {
  constexpr rlimit kFew = {.rlim_cur = 64, .rlim_max = 64};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &kFew), 0);
  const auto silent = connect(2);
  const auto talking = connect(1, "o");
  Socket late = new_socket();
  ASSERT_TRUE(try_to_connect(late, path()));
  late.send("now");
  late.end_sending();
  std::deque<Socket> others;
  do others.emplace_back(::dup(late.fd()));
  while (others.back().fd() >= 0);
  EXPECT_TRUE(do_one());
  EXPECT_FALSE(is_open(silent[0]));
  advance();
  EXPECT_TRUE(is_open(silent[1]));
  EXPECT_TRUE(is_open(talking[0]));
  EXPECT_EQ(served, Requests{"now"});
}

TEST_F(ConnectionsOfClients, AreGoneWhenAllAreServed) {
  EXPECT_FALSE(connections_.has_client());
  Socket client = new_socket();
  ASSERT_TRUE(try_to_connect(client, path()));
  EXPECT_TRUE(connections_.has_client());
  advance();
  EXPECT_TRUE(connections_.has_client());
  client.close();
  advance();
  EXPECT_FALSE(connections_.has_client());
}

}  // namespace
}  // namespace tarvio_test
