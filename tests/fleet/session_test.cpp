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

// A broker with which connections can be opened, and that says nothing.
class SilentBroker {
 public:
  SilentBroker() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(fd(), reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(fd(), 1), 0);
    EXPECT_EQ(getsockname(fd(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    broker_.host = "127.0.0.1";
    broker_.port = ntohs(address.sin_port);
    broker_.has_tls = false;
  }

  const fleet::Broker& address() const { return broker_; }
  int fd() const { return fd_.get(); }

 private:
  const tarvio::Fd fd_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  fleet::Broker broker_;
};

// A broker that accepts one connection and ends it at once.
class HastyBroker : public SilentBroker {
 public:
  HastyBroker() {
    thread_ = std::thread([this] { serve(); });
  }
  ~HastyBroker() { thread_.join(); }
  HastyBroker(const HastyBroker&) = delete;
  HastyBroker& operator=(const HastyBroker&) = delete;

 private:
  void serve() const {
    constexpr std::array<char, 5> kAccepted = {0x20, 0x03, 0, 0, 0};
    std::array<char, 512> room{};
    const tarvio::Fd client(accept4(fd(), nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_GT(read(client.get(), room.data(), room.size()), 0);
    EXPECT_EQ(write(client.get(), kAccepted.data(), kAccepted.size()), kAccepted.size());
  }

  std::thread thread_;
};

void go_on(fleet::Session& session) {
  pollfd file = {.fd = session.fd(), .events = session.events(), .revents = 0};
  (void)poll(&file, 1, 0);
  session.step(file.revents);
}

TEST(Session, ReportsAConnectionThatBreaksWhileItSendsAsLost) {
  const HastyBroker broker;
  fleet::Session session({.broker = broker.address(), .client_id = "board-1"});
  ASSERT_TRUE(tarvio_test::eventually([&] {
    go_on(session);
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

TEST(Session, SaysThatTheBrokerDoesNotAnswer) {
  const SilentBroker broker;
  constexpr int kLeastOfTheLibrary = 5;
  fleet::Session session({.broker = broker.address(),
                          .client_id = "board-1",
                          .keep_alive_seconds = kLeastOfTheLibrary});
  std::optional<Event> event;
  ASSERT_TRUE(tarvio_test::eventually([&] {
    go_on(session);
    event = session.next_event();
    return event.has_value();
  }));
  EXPECT_EQ(event->kind, Event::Kind::kLost);
  EXPECT_EQ(event->cause, "cannot connect to the broker " + broker.address().name() +
                              ": the broker does not answer");
}

}  // namespace
