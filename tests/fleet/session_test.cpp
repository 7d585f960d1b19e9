#include "fleet/session.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "base/owners.h"
#include "support/children.h"

namespace {

using fleet::Event;

// A broker that accepts one connection and ends it at once.
class HastyBroker {
 public:
  HastyBroker() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(fd_.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(fd_.get(), 1), 0);
    EXPECT_EQ(getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    broker_.host = "127.0.0.1";
    broker_.port = ntohs(address.sin_port);
    broker_.has_tls = false;
    thread_ = std::thread([this] { serve(); });
  }
  ~HastyBroker() { thread_.join(); }
  HastyBroker(const HastyBroker&) = delete;
  HastyBroker& operator=(const HastyBroker&) = delete;

  const fleet::Broker& address() const { return broker_; }

 private:
  void serve() const {
    constexpr std::array<char, 5> kAccepted = {0x20, 0x03, 0, 0, 0};
    std::array<char, 512> room{};
    const tarvio::Fd client(accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_GT(read(client.get(), room.data(), room.size()), 0);
    EXPECT_EQ(write(client.get(), kAccepted.data(), kAccepted.size()), kAccepted.size());
  }

  const tarvio::Fd fd_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  fleet::Broker broker_;
  std::thread thread_;
};

TEST(Session, ReportsAConnectionThatBreaksWhileItSendsAsLost) {
  const HastyBroker broker;
  fleet::Session session({.broker = broker.address(), .client_id = "board-1"});
  ASSERT_TRUE(tarvio_test::eventually([&] {
    pollfd file = {.fd = session.fd(), .events = session.events(), .revents = 0};
    (void)poll(&file, 1, 0);
    session.step(file.revents);
    return session.is_connected();
  }));
  EXPECT_EQ(session.next_event()->kind, Event::Kind::kConnected);
  EXPECT_TRUE(tarvio_test::eventually([&] {
    session.subscribe("requests");
    return !session.is_connected();
  }));
  const std::optional<Event> lost = session.next_event();
  ASSERT_TRUE(lost);
  EXPECT_EQ(lost->kind, Event::Kind::kLost);
  EXPECT_FALSE(session.next_event());
}

}  // namespace
