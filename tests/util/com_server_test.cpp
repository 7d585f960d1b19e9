#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <string>

#include "support/com/com_server.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/live_allocations.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;

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
  std::string path = directory_ / "s";
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
  EXPECT_FALSE(fs::exists(path_));  // the path is cleared first
  EXPECT_EQ(live.count(), 0);
  EXPECT_THAT(logged(), ElementsAre("debug: Setting up com server " + path_));
}

TEST_F(ComServer, FailedBindKeepsItsRecordButNotItsSocket) {
  const Socket first(tq_setup_com_server(path_.c_str(), echo));
  const std::string path = directory_ / "no-such-directory/socket";
  const long descriptors = count_descriptors();
  const LiveAllocations live;
  EXPECT_EQ(tq_setup_com_server(path.c_str(), echo), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(live.count(), 3);  // record, path and list node
  EXPECT_EQ(count_descriptors(), descriptors);
  EXPECT_EQ(logged().back(), "debug: Com server setup failed -1");
}

TEST_F(ComServer, FailedSetUpLeavesTheNumber0Open) {
  const Socket standard_input(dup(STDIN_FILENO));
  close(STDIN_FILENO);
  EXPECT_EQ(tq_setup_com_server("/no-such-directory/socket", echo), -1);
  EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
  dup2(standard_input.fd(), STDIN_FILENO);
}

TEST_F(ComServer, WhoseSetUpFailedHasNoNumber) {
  const Socket spare = new_socket();
  const int number = spare.fd() + 1;
  EXPECT_EQ(tq_setup_com_server("/no-such-directory/socket", echo), -1);
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

std::atomic<int> thread_creations;
std::atomic<int> thread_detachments;

int count_creation(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
  ++thread_creations;
  return EAGAIN;
}

int count_detachment(pthread_t thread) {
  ++thread_detachments;
  return pthread_detach(thread);
}

TEST_F(ComServer, WaitStartsNothingForAnUnknownSocket) {
  thread_creations = 0;
  const Hook hook("pthread_create", count_creation);
  EXPECT_EQ(tq_wait_com(0), EINVAL);  // nothing was ever set up
  const Socket listener(tq_setup_com_server(path_.c_str(), echo));
  EXPECT_EQ(tq_wait_com(1000000), EINVAL);
  EXPECT_EQ(thread_creations, 0);
}

TEST_F(ComServer, WaitGivesTheResultOfPthreadCreate) {
  thread_detachments = 0;
  const Hook creation("pthread_create", count_creation);
  const Hook detachment("pthread_detach", count_detachment);
  const Socket listener(tq_setup_com_server(path_.c_str(), echo));
  log_.clear();
  EXPECT_EQ(tq_wait_com(listener.fd()), EAGAIN);
  EXPECT_EQ(thread_detachments, 0);
  EXPECT_THAT(logged(), ElementsAre("debug: Create unix server socket."));
}

TEST_F(ComServer, WaitStartsADetachedThread) {
  thread_detachments = 0;
  const Hook hook("pthread_detach", count_detachment);
  const int listener = tq_setup_com_server(path_.c_str(), echo);
  EXPECT_EQ(tq_wait_com(listener), 0);
  EXPECT_EQ(thread_detachments, 1);
  EXPECT_EQ(ask(path_, "hello"), "hello");
}

}  // namespace
}  // namespace tarvio_test
