#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "support/fail_alloc.h"
#include "support/files.h"
#include "support/got_hook.h"
#include "support/live_allocations.h"
#include "support/log_capture.h"
#include "support/sockets.h"
#include "support/unit_messages.h"
#include "tarvio/com.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

using testing::ElementsAre;

constexpr char kUnit[] = "util/tq_interprocess_com";

// Answers with what came and ends the connection.
uint32_t echo(int32_t fd) {
  const Socket client(fd);
  client.send(client.read_to_end());
  return 0;
}

uint32_t answer_new(int32_t fd) {
  Socket(fd).send("new");
  return 0;
}

bool soon(const std::function<bool()>& condition) {
  for (int i = 0; i < 3000 && !condition(); ++i) std::this_thread::sleep_for(10ms);
  return condition();
}

// Server threads live and log as long as the process: so does what keeps their messages.
LogCapture& immortal_log() {
  static auto& log = *new LogCapture(TQ_LOG_DEBUG);
  log.clear();
  return log;
}

class ComServer : public testing::Test {
 protected:
  std::vector<std::string> logged() const { return unit_messages(log_, kUnit); }

  const TempDir folder_;
  const std::string path_ = folder_ / "socket";
  LogCapture& log_ = immortal_log();
};

TEST_F(ComServer, RecordHasItsFieldsInOrder) {
  EXPECT_EQ(offsetof(tq_com_server, path), 0U);
  EXPECT_EQ(offsetof(tq_com_server, fd), sizeof(char*));
  EXPECT_EQ(offsetof(tq_com_server, handler), 2 * sizeof(char*));
  EXPECT_EQ(offsetof(tq_com_server, thread), 3 * sizeof(char*));
}

TEST_F(ComServer, SetUpListensButDoesNotServeYet) {
  const Socket listener(tq_setup_com_server(path_.c_str(), echo));
  ASSERT_GE(listener.fd(), 0);
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms(0666));
  const Socket waiting = connect_to(path_);
  accept_on(listener);  // still in the queue
  EXPECT_THAT(logged(), ElementsAre("debug: Setting up com server " + path_));
}

TEST_F(ComServer, SecondSetUpOnAPathTakesItOver) {
  const Socket first(tq_setup_com_server(path_.c_str(), echo));
  const Socket second(tq_setup_com_server(path_.c_str(), echo));
  const Socket waiting = connect_to(path_);
  fcntl(first.fd(), F_SETFL, O_NONBLOCK);
  EXPECT_EQ(accept(first.fd(), nullptr, nullptr), -1);
  accept_on(second);
}

TEST_F(ComServer, NeedsAHandler) {
  write_file(path_, "mine");
  EXPECT_EQ(tq_setup_com_server(path_.c_str(), nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(read_file(path_), "mine");
  EXPECT_THAT(logged(), ElementsAre("debug: Setting up com server " + path_,
                                    "debug: Com server setup failed -1"));
}

TEST_F(ComServer, NeedsAPath) {
  EXPECT_EQ(tq_setup_com_server(nullptr, echo), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(tq_setup_com_server("", echo), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(ComServer, RefusesAPathThatIsTooLong) {
  const long before = count_descriptors();
  const std::string path = "/" + std::string(108, 's');
  EXPECT_EQ(tq_setup_com_server(path.c_str(), echo), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(count_descriptors(), before);
  EXPECT_EQ(logged().back(), "debug: Com server setup failed -1");
}

TEST_F(ComServer, TakesAPathOf107Bytes) {
  std::string path = folder_ / "s";
  path.append(107 - path.size(), 's');
  const Socket listener(tq_setup_com_server(path.c_str(), echo));
  EXPECT_GE(listener.fd(), 0);
  connect_to(path);
}

TEST_F(ComServer, WithoutASocketGivesItsValueAndKeepsNothing) {
  const Socket first(tq_setup_com_server(path_.c_str(), echo));  // makes the list of servers
  log_.clear();
  const LiveAllocations live;
  const Hook hook(
      "socket", +[](int, int, int) {
        errno = ENFILE;
        return -7;
      });
  EXPECT_EQ(tq_setup_com_server(path_.c_str(), echo), -7);
  EXPECT_EQ(errno, ENFILE);
  EXPECT_EQ(live.count(), 0);
  EXPECT_THAT(logged(), ElementsAre("debug: Setting up com server " + path_));
}

TEST_F(ComServer, FailedBindKeepsItsRecordButNotItsSocket) {
  const Socket first(tq_setup_com_server(path_.c_str(), echo));
  const std::string path = folder_ / "no-such-folder/socket";
  const long descriptors = count_descriptors();
  const LiveAllocations live;
  EXPECT_EQ(tq_setup_com_server(path.c_str(), echo), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(live.count(), 3);  // record, path and list node
  EXPECT_EQ(count_descriptors(), descriptors);
  EXPECT_EQ(logged().back(), "debug: Com server setup failed -1");
}

TEST_F(ComServer, WhoseSetUpFailedHasNoNumber) {
  const Socket spare = new_socket();
  const int number = spare.fd() + 1;
  EXPECT_EQ(tq_setup_com_server("/no-such-folder/socket", echo), -1);
  EXPECT_EQ(tq_wait_com(number), EINVAL);
  EXPECT_EQ(tq_wait_com(-1), EINVAL);
}

TEST_F(ComServer, NeedsMemoryForTheListOfServers) {
  const FailAlloc fail(1);
  EXPECT_EQ(tq_setup_com_server(path_.c_str(), echo), -1);
  EXPECT_EQ(errno, ENOMEM);
}

TEST_F(ComServer, RunsOutOfMemoryWithoutALoss) {
  const Socket first(tq_setup_com_server(path_.c_str(), echo));  // makes the list of servers
  int failures = 0;
  for (int n = 1;; ++n) {
    const long descriptors = count_descriptors();
    FailAlloc fail(n);
    const Socket listener(tq_setup_com_server(path_.c_str(), echo));
    if (!fail.happened()) break;
    ++failures;
    EXPECT_EQ(listener.fd(), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(count_descriptors(), descriptors);
    EXPECT_EQ(logged().back(), "debug: Com server setup failed -1");
  }
  EXPECT_EQ(failures, 3);  // record, path and list node
}

std::atomic<int> thread_creations = 0;
std::atomic<int> thread_detachments = 0;

int count_creation(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
  ++thread_creations;
  return EAGAIN;
}

int count_detachment(pthread_t thread) {
  ++thread_detachments;
  return pthread_detach(thread);
}

TEST_F(ComServer, WaitStartsNothingForAnUnknownSocket) {
  const Hook hook("pthread_create", count_creation);
  EXPECT_EQ(tq_wait_com(0), EINVAL);  // nothing was ever set up
  const Socket listener(tq_setup_com_server(path_.c_str(), echo));
  EXPECT_EQ(tq_wait_com(listener.fd() + 1), EINVAL);
  EXPECT_EQ(thread_creations, 0);
}

TEST_F(ComServer, WaitGivesTheResultOfPthreadCreate) {
  const Hook creation("pthread_create", count_creation);
  const Hook detachment("pthread_detach", count_detachment);
  const Socket listener(tq_setup_com_server(path_.c_str(), echo));
  log_.clear();
  EXPECT_EQ(tq_wait_com(listener.fd()), EAGAIN);
  EXPECT_EQ(thread_detachments, 0);
  EXPECT_THAT(logged(), ElementsAre("debug: Create unix server socket."));
}

TEST_F(ComServer, WaitStartsADetachedThread) {
  const Hook hook("pthread_detach", count_detachment);
  const int listener = tq_setup_com_server(path_.c_str(), echo);
  EXPECT_EQ(tq_wait_com(listener), 0);
  EXPECT_EQ(thread_detachments, 1);
  EXPECT_EQ(ask(path_, "hello"), "hello");
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

uint32_t tell_thread(int32_t fd) {
  handler_thread = pthread_self();
  return echo(fd) + 42;  // a result that nobody looks at
}

TEST_F(ComServer, CallsItsHandlerOnAThreadOfItsOwn) {
  EXPECT_EQ(tq_wait_com(tq_setup_com_server(path_.c_str(), tell_thread)), 0);
  EXPECT_EQ(ask(path_, "a"), "a");
  const pthread_t first = handler_thread;
  EXPECT_EQ(ask(path_, "b"), "b");
  EXPECT_NE(pthread_equal(first, handler_thread), 0);
  EXPECT_EQ(pthread_equal(first, pthread_self()), 0);
}

std::atomic<int> accepts = 0;
std::atomic<int> accepted_on = 0;
std::atomic<int> failing_accepts = 0;
std::atomic<int> accept_error = 0;
std::atomic<int> client_number = 0;

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

std::atomic<long> pauses = 0;
std::atomic<long> pause_ns = 0;

int counted_pause(const timespec* pause, timespec*) {
  pause_ns = pause->tv_nsec + pause->tv_sec * 1000000000;
  ++pauses;
  return 0;
}

TEST_F(ComServer, ThreadTellsWhatItDoes) {
  const Hook hook("accept4", counted_accept);
  const int listener = tq_setup_com_server(path_.c_str(), echo);
  log_.clear();
  EXPECT_EQ(tq_wait_com(listener), 0);
  EXPECT_EQ(ask(path_, "hello"), "hello");
  ASSERT_TRUE(soon([] { return accepts == 2; }));
  const std::string number = std::to_string(listener);
  EXPECT_THAT(logged(),
              ElementsAre("debug: Create unix server socket.", "debug: tq_com_handler!! " + number,
                          "debug: Waiting tq_com_handler " + number,
                          "debug: Accept client socket " + std::to_string(client_number) + " ",
                          "debug: Waiting tq_com_handler " + number));
}

TEST_F(ComServer, ThreadTellsOfAFailedAccept) {
  const Hook hook("accept4", counted_accept);
  const Hook pause("nanosleep", counted_pause);
  failing_accepts = 1;
  accept_error = EMFILE;
  const int listener = tq_setup_com_server(path_.c_str(), echo);
  log_.clear();
  EXPECT_EQ(tq_wait_com(listener), 0);
  ASSERT_TRUE(soon([] { return accepts == 2; }));
  const std::string number = std::to_string(listener);
  EXPECT_THAT(
      logged(),
      ElementsAre("debug: Create unix server socket.", "debug: tq_com_handler!! " + number,
                  "debug: Waiting tq_com_handler " + number, "debug: client socket failure -1 ",
                  "debug: Waiting tq_com_handler " + number));
  EXPECT_TRUE(log_.contains(TQ_LOG_WARNING, "util/tq_unix_sock", "Accept unix socket failed 24 "));
}

class AcceptError : public ComServer, public testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(AcceptError, IsTriedAgainWithAPauseUnlessTheNextMayBeFine) {
  const auto [error, expected_pauses] = GetParam();
  const Hook hook("accept4", counted_accept);
  const Hook pause("nanosleep", counted_pause);
  failing_accepts = 3;
  accept_error = error;
  EXPECT_EQ(tq_wait_com(tq_setup_com_server(path_.c_str(), echo)), 0);
  EXPECT_EQ(ask(path_, "back"), "back");
  EXPECT_EQ(pauses, expected_pauses);
  EXPECT_EQ(pause_ns, expected_pauses == 0 ? 0 : 100000000);
  ASSERT_TRUE(soon([] { return accepts == 5; }));
}

INSTANTIATE_TEST_SUITE_P(ComServer, AcceptError,
                         testing::Values(std::pair(EMFILE, 3), std::pair(ENFILE, 3),
                                         std::pair(ENOMEM, 3), std::pair(EBADF, 3),
                                         std::pair(EINTR, 0), std::pair(ECONNABORTED, 0)));

double thread_cpu_seconds(pthread_t thread) {
  clockid_t clock = 0;
  timespec time = {};
  pthread_getcpuclockid(thread, &clock);
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

TEST_F(ComServer, WaitsWithoutSpinningWhileThereAreNoDescriptors) {
  EXPECT_EQ(tq_wait_com(tq_setup_com_server(path_.c_str(), tell_thread)), 0);
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

TEST_F(ComServer, NumberThatIsGivenOutAgainBelongsToTheNewestServer) {
  const int first = tq_setup_com_server(path_.c_str(), echo);
  EXPECT_EQ(tq_wait_com(first), 0);
  EXPECT_EQ(ask(path_, "old"), "old");
  EXPECT_EQ(tq_stop_com_server(first), 0);
  ASSERT_EQ(tq_setup_com_server(path_.c_str(), answer_new), first);
  EXPECT_EQ(tq_wait_com(first), 0);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(ask(path_, ""), "new");
}

std::binary_semaphore release_handler{0};

uint32_t wait_for_release(int32_t fd) {
  release_handler.acquire();
  return echo(fd);
}

TEST_F(ComServer, WhoseNumberIsGoneTakesNoConnectionOfAnother) {
  const int first = tq_setup_com_server(path_.c_str(), wait_for_release);
  EXPECT_EQ(tq_wait_com(first), 0);
  const Socket served = connect_to(path_);
  served.send("old");
  served.end_sending();
  // Its handler is at work, so that it comes back to a number that is another server's.
  const Hook hook("accept4", counted_accept);
  ASSERT_TRUE(soon([&] { return fcntl(first + 2, F_GETFD) >= 0; }));
  EXPECT_EQ(tq_stop_com_server(first), 0);
  ASSERT_EQ(tq_setup_com_server(path_.c_str(), answer_new), first);
  release_handler.release();
  EXPECT_EQ(served.read_to_end(), "old");
  ASSERT_TRUE(soon([] { return accepts > 0; }));
  EXPECT_EQ(accepted_on, -1);
  EXPECT_EQ(tq_wait_com(first), 0);
  EXPECT_EQ(ask(path_, ""), "new");
}

std::string child_descriptors() {
  std::string list;
  FILE* output = popen("ls /proc/self/fd", "re");
  for (int byte = getc(output); byte != EOF; byte = getc(output)) list += static_cast<char>(byte);
  pclose(output);
  return list;
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

}  // namespace
}  // namespace tarvio_test
