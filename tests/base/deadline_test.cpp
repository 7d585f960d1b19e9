#include "base/deadline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <string>
#include <thread>

#include "base/owners.h"
#include "base/pipe.h"

namespace tarvio_test {
namespace {

using tarvio::Deadline;
using tarvio::Fd;
using tarvio::Pipe;
using testing::AllOf;
using testing::Ge;
using testing::Gt;
using testing::Le;

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(Deadline, IsNeverUnlessItIsSet) {
  EXPECT_FALSE(Deadline::never().is_set());
  EXPECT_FALSE(Deadline::never().passed());
  EXPECT_EQ(Deadline::never().remaining_ms(), -1);
}

TEST(Deadline, CountsDown) {
  const Deadline deadline = Deadline::after(10'000);
  EXPECT_TRUE(deadline.is_set());
  EXPECT_FALSE(deadline.passed());
  EXPECT_THAT(deadline.remaining_ms(), AllOf(Gt(5'000), Le(10'000)));
}

TEST(Deadline, HasPassedAtOnceWithoutTime) {
  EXPECT_TRUE(Deadline::after(0).passed());
  EXPECT_EQ(Deadline::after(0).remaining_ms(), 0);
  EXPECT_TRUE(Deadline::after(-1).passed());
}

// Rounded down, a wait for the rest would end before the deadline.
TEST(Deadline, RoundsTheRestUp) {
  const Deadline deadline = Deadline::after(20);
  while (!deadline.passed()) {
    EXPECT_GE(deadline.remaining_ms(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(deadline.remaining_ms()));
  }
  EXPECT_EQ(deadline.remaining_ms(), 0);
}

TEST(Deadline, TakesSeconds) {
  EXPECT_THAT(Deadline::after_seconds(2.5).remaining_ms(), AllOf(Gt(2'000), Le(2'500)));
  EXPECT_THAT(Deadline::after_seconds(0.001).remaining_ms(), AllOf(Ge(0), Le(1)));
}

TEST(Deadline, IsNeverForNoSeconds) {
  for (const double seconds : {0.0, -1.0}) EXPECT_FALSE(Deadline::after_seconds(seconds).is_set());
}

TEST(Deadline, IsInTheFarFutureForManySeconds) {
  for (const double seconds : {1e7, 1e9, 1e300}) {
    const Deadline deadline = Deadline::after_seconds(seconds);
    EXPECT_TRUE(deadline.is_set());
    EXPECT_EQ(deadline.remaining_ms(), INT_MAX);
  }
}

TEST(WaitFor, EndsWithTheEvent) {
  const Pipe pipe;
  ASSERT_TRUE(tarvio::write_all(pipe.write_end.get(), "x"));
  EXPECT_TRUE(tarvio::wait_for(pipe.read_end.get(), POLLIN, Deadline::never()));
  EXPECT_TRUE(tarvio::wait_for(pipe.write_end.get(), POLLOUT, Deadline::after(0)));
}

TEST(WaitFor, EndsWhenThePeerHangsUp) {
  Pipe pipe;
  pipe.write_end.reset();
  EXPECT_TRUE(tarvio::wait_for(pipe.read_end.get(), POLLIN, Deadline::never()));
}

TEST(WaitFor, EndsAtItsDeadline) {
  const Pipe pipe;
  const auto begin = Clock::now();
  EXPECT_FALSE(tarvio::wait_for(pipe.read_end.get(), POLLIN, Deadline::after(50)));
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_GE(Clock::now() - begin, 50ms);
}

// Each signal interrupts the wait, whose end stays where it was.
TEST(WaitFor, EndsAtItsDeadlineAlthoughSignalsArrive) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const timeval often = {.tv_sec = 0, .tv_usec = 10'000};
  const itimerval timer = {.it_interval = often, .it_value = often};
  ::setitimer(ITIMER_REAL, &timer, nullptr);
  const Pipe pipe;
  const auto begin = Clock::now();
  EXPECT_FALSE(tarvio::wait_for(pipe.read_end.get(), POLLIN, Deadline::after(100)));
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_GE(Clock::now() - begin, 100ms);
  const itimerval off = {};
  ::setitimer(ITIMER_REAL, &off, nullptr);
}

class SendAll : public testing::Test {
 protected:
  SendAll() {
    int ends[2] = {};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ours_.reset(ends[0]);
    peer_.reset(ends[1]);
  }

  Fd ours_;
  Fd peer_;
};

TEST_F(SendAll, SendsMoreThanTheSocketHolds) {
  const std::string sent(4 << 20, 'x');
  std::string received;
  std::jthread reader([&] {
    char piece[65536];
    while (true) {
      const ssize_t count = ::read(peer_.get(), piece, sizeof piece);
      if (count <= 0) break;
      received.append(piece, static_cast<size_t>(count));
    }
  });
  EXPECT_TRUE(tarvio::send_all(ours_.get(), sent, Deadline::after(60'000)));
  ours_.reset();
  reader.join();
  EXPECT_EQ(received, sent);
}

TEST_F(SendAll, EndsAtItsDeadlineWhenThePeerStalls) {
  const auto begin = Clock::now();
  EXPECT_FALSE(tarvio::send_all(ours_.get(), std::string(16 << 20, 'x'), Deadline::after(50)));
  EXPECT_GE(Clock::now() - begin, 50ms);
}

// SIGPIPE would end this process.
TEST_F(SendAll, FailsWithoutASignalWhenThePeerIsGone) {
  peer_.reset();
  EXPECT_FALSE(tarvio::send_all(ours_.get(), "x", Deadline::never()));
  EXPECT_EQ(errno, EPIPE);
}

TEST_F(SendAll, SendsNothingOfNothing) {
  EXPECT_TRUE(tarvio::send_all(ours_.get(), "", Deadline::after(0)));
}

}  // namespace
}  // namespace tarvio_test
