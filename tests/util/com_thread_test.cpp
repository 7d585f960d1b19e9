#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "support/child_descriptors.h"
#include "support/com/com_server.h"
#include "support/hooks/got_hook.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

using namespace std::chrono_literals;

using testing::ElementsAre;

uint32_t answer_new(int32_t fd) {
  Socket(fd).send("new");
  return 0;
}

bool soon(const std::function<bool()>& condition) {
  for (int i = 0; i < 3000 && !condition(); ++i) std::this_thread::sleep_for(10ms);
  return condition();
}

TEST_F(ComServer, ServesOneConnectionAfterTheOther) {
  EXPECT_EQ(tq_wait_com(tq_setup_com_server(path_.c_str(), echo)), 0);
  const Socket first = connect_to(path_);
  const Socket second = connect_to(path_);
  second.send("second");
  second.end_sending();
  char byte = '\0';
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(recv(second.fd(), &byte, 1, MSG_DONTWAIT), -1);  // the first is not served yet
  first.send("first");
  first.end_sending();
  EXPECT_EQ(first.read_to_end(), "first");
  EXPECT_EQ(second.read_to_end(), "second");
}

std::atomic<pthread_t> handler_thread;

uint32_t note_thread(int32_t fd) {
  handler_thread = pthread_self();
  return echo(fd) + 42;  // a result that is not used
}

TEST_F(ComServer, CallsItsHandlerOnAThreadOfItsOwn) {
  EXPECT_EQ(tq_wait_com(tq_setup_com_server(path_.c_str(), note_thread)), 0);
  EXPECT_EQ(ask(path_, "a"), "a");
  const pthread_t first = handler_thread;
  EXPECT_EQ(ask(path_, "b"), "b");
  EXPECT_NE(pthread_equal(first, handler_thread), 0);
  EXPECT_EQ(pthread_equal(first, pthread_self()), 0);
}

std::atomic<int> accepts;
std::atomic<int> accepted_on;
std::atomic<int> client_number;
std::atomic<int> failing_accepts;
std::atomic<int> accept_error;
std::atomic<int> pauses;
std::atomic<long> pause_ns;

int counted_accept(int fd, sockaddr* address, socklen_t* length, int flags) {
  accepted_on = fd;
  ++accepts;
  if (failing_accepts > 0) {
    --failing_accepts;
    errno = accept_error;
    return -1;
  }
  const int client = accept4(fd, address, length, flags);
  if (client >= 0) client_number = client;
  return client;
}

int counted_pause(const timespec* pause, timespec*) {
  pause_ns = pause->tv_nsec + pause->tv_sec * 1000000000;
  ++pauses;
  return 0;
}

// Watches the accepts of the server's thread, and can make them fail.
class ComAccept : public ComServer {
 protected:
  ComAccept() {
    accepts = 0;
    failing_accepts = 0;
    pauses = 0;
    pause_ns = 0;
  }
};

TEST_F(ComAccept, IsLoggedStepByStep) {
  const Hook hook("accept4", counted_accept);
  const int listener = tq_setup_com_server(path_.c_str(), echo);
  log_.clear();
  EXPECT_EQ(tq_wait_com(listener), 0);
  EXPECT_EQ(ask(path_, "hello"), "hello");
  ASSERT_TRUE(soon([] { return accepts >= 2; }));
  const std::string number = std::to_string(listener);
  EXPECT_THAT(logged(),
              ElementsAre("debug: Create unix server socket.", "debug: tq_com_handler!! " + number,
                          "debug: Waiting tq_com_handler " + number,
                          "debug: Accept client socket " + std::to_string(client_number) + " ",
                          "debug: Waiting tq_com_handler " + number));
}

TEST_F(ComAccept, IsLoggedWhenItFails) {
  const Hook hook("accept4", counted_accept);
  const Hook pause("nanosleep", counted_pause);
  failing_accepts = 1;
  accept_error = EMFILE;
  const int listener = tq_setup_com_server(path_.c_str(), echo);
  log_.clear();
  EXPECT_EQ(tq_wait_com(listener), 0);
  ASSERT_TRUE(soon([] { return accepts >= 2; }));
  const std::string number = std::to_string(listener);
  EXPECT_THAT(
      logged(),
      ElementsAre("debug: Create unix server socket.", "debug: tq_com_handler!! " + number,
                  "debug: Waiting tq_com_handler " + number, "debug: client socket failure -1 ",
                  "debug: Waiting tq_com_handler " + number));
  EXPECT_TRUE(log_.contains(TQ_LOG_WARNING, "util/tq_unix_sock", "Accept unix socket failed 24 "));
}

TEST_F(ComAccept, IsTriedAgainAfterAPauseUnlessTheNextMayBeFine) {
  const Hook hook("accept4", counted_accept);
  const Hook pause("nanosleep", counted_pause);
  const std::pair<int, int> rows[] = {
      // error number, and pauses for three of it
      {EMFILE, 3}, {ENFILE, 3}, {ENOMEM, 3}, {EBADF, 3}, {EINTR, 0}, {ECONNABORTED, 0},
  };
  for (const auto& [error, expected_pauses] : rows) {
    accepts = 0;
    pauses = 0;
    pause_ns = 0;
    failing_accepts = 3;
    accept_error = error;
    EXPECT_EQ(tq_wait_com(tq_setup_com_server(path_.c_str(), echo)), 0);
    EXPECT_EQ(ask(path_, "back"), "back");
    ASSERT_TRUE(soon([] { return accepts >= 5; }));
    EXPECT_EQ(pauses, expected_pauses) << error;
    EXPECT_EQ(pause_ns, expected_pauses == 0 ? 0 : 100000000) << error;
  }
}

double thread_cpu_seconds(pthread_t thread) {
  clockid_t clock = 0;
  timespec time = {};
  pthread_getcpuclockid(thread, &clock);
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

TEST_F(ComAccept, DoesNotSpinWhileThereAreNoDescriptors) {
  EXPECT_EQ(tq_wait_com(tq_setup_com_server(path_.c_str(), note_thread)), 0);
  EXPECT_EQ(ask(path_, "before"), "before");
  const Socket waiting = new_socket();
  const Hook hook("accept4", counted_accept);
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none_left = {3, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none_left);
  // The accept that waits is past the check of the limit: its connection is still taken.
  EXPECT_TRUE(try_to_connect(waiting, path_));
  waiting.end_sending();
  EXPECT_TRUE(soon([] { return accepts > 0; }));

  const double before = thread_cpu_seconds(handler_thread);
  std::this_thread::sleep_for(3s);
  EXPECT_LT(thread_cpu_seconds(handler_thread) - before, 0.05);
  EXPECT_LE(accepts, 40);

  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(ask(path_, "after"), "after");
}

TEST_F(ComServer, StopClosesTheSocket) {
  const int listener = tq_setup_com_server(path_.c_str(), echo);
  EXPECT_EQ(tq_stop_com_server(listener), 0);
  EXPECT_EQ(fcntl(listener, F_GETFD), -1);
  EXPECT_EQ(tq_stop_com_server(listener), -1);
  EXPECT_EQ(errno, EBADF);
}

uint32_t answer_child_descriptors(int32_t fd) {
  Socket(fd).send(child_descriptors());
  return 0;
}

TEST_F(ComServer, NoSocketIsInheritedByAChild) {
  const std::string before = child_descriptors();
  const int listener = tq_setup_com_server(path_.c_str(), answer_child_descriptors);
  EXPECT_EQ(tq_wait_com(listener), 0);
  const Socket request(tq_request_com(path_.c_str(), "list", 0, nullptr));
  EXPECT_EQ(request.read_to_end(), before);
}

// The last ones: a retired server's thread keeps trying for as long as the process lives.
using ComRetired = ComAccept;

TEST_F(ComRetired, NumberBelongsToTheNewestServer) {
  const Hook hook("accept4", counted_accept);
  const int first = tq_setup_com_server(path_.c_str(), echo);
  EXPECT_EQ(tq_wait_com(first), 0);
  EXPECT_EQ(ask(path_, "old"), "old");
  ASSERT_TRUE(soon([] { return accepts >= 2; }));  // it waits for good on the socket that goes now
  EXPECT_EQ(tq_stop_com_server(first), 0);
  ASSERT_EQ(tq_setup_com_server(path_.c_str(), answer_new), first);
  EXPECT_EQ(tq_wait_com(first), 0);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(ask(path_, ""), "new");
}

std::binary_semaphore handler_started{0};
std::binary_semaphore release_handler{0};

uint32_t wait_for_release(int32_t fd) {
  handler_started.release();
  release_handler.acquire();
  return echo(fd);
}

TEST_F(ComRetired, ThreadTakesNoConnectionOfAnotherServer) {
  const int first = tq_setup_com_server(path_.c_str(), wait_for_release);
  EXPECT_EQ(tq_wait_com(first), 0);
  const Socket served = connect_to(path_);
  served.send("old");
  served.end_sending();
  // Its handler is at work, so that it comes back to a number that is another server's.
  handler_started.acquire();
  const Hook hook("accept4", counted_accept);
  EXPECT_EQ(tq_stop_com_server(first), 0);
  ASSERT_EQ(tq_setup_com_server(path_.c_str(), answer_new), first);
  release_handler.release();
  EXPECT_EQ(served.read_to_end(), "old");
  ASSERT_TRUE(soon([] { return accepts > 0; }));
  EXPECT_EQ(accepted_on, -1);
  EXPECT_EQ(tq_wait_com(first), 0);
  EXPECT_EQ(ask(path_, ""), "new");
}

TEST_F(ComRetired, ThreadGoesOnTrying) {
  const int listener = tq_setup_com_server(path_.c_str(), echo);
  const std::string message = "debug: Waiting tq_com_handler " + std::to_string(listener);
  const auto attempts = [&] {
    const std::vector<std::string> messages = logged();
    return std::count(messages.begin(), messages.end(), message);
  };
  EXPECT_EQ(tq_wait_com(listener), 0);
  ASSERT_TRUE(soon([&] { return attempts() == 1; }));
  EXPECT_EQ(tq_stop_com_server(listener), 0);
  try_to_connect(new_socket(), path_);  // ends the accept that waits, which still holds the socket
  EXPECT_TRUE(soon([&] { return attempts() >= 4; }));
  // Another server takes the number over, so that no later test loses connections to the thread.
  EXPECT_EQ(tq_setup_com_server(path_.c_str(), echo), listener);
  EXPECT_EQ(tq_wait_com(listener), 0);
  EXPECT_EQ(ask(path_, "next"), "next");
}

}  // namespace
}  // namespace tarvio_test
