#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "support/com/request_handler.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/live_allocations.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "support/unit_messages.h"

namespace tarvio_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr char kUnit[] = "com/tq_com_manager";

// Serves a connection, and keeps what is printed meanwhile.
class ComFailure : public RequestHandler {
 protected:
  void serve_and_listen(Socket server) {
    const StdoutCapture output;
    testing::internal::CaptureStderr();
    result_ = tq_request_handler(server.release());
    printed_ = output.text();
    complaint_ = testing::internal::GetCapturedStderr();
  }

  std::string printed_;
  std::string complaint_;
};

TEST_F(ComFailure, RequestIsAnsweredAtTheLimitOfDescriptors) {
  set_three_statuses();
  auto [client, server] = socket_pair();
  client.send("status_app\n");
  client.end_sending();
  const NoMoreDescriptors limit;
  EXPECT_EQ(dup(0), -1);
  EXPECT_EQ(serve(client, std::move(server)), "web\n0\nstarted app\nclock\n2\nstart app failed.\n");
  EXPECT_EQ(result_, 0U);
}

TEST_F(ComFailure, RequestNeedsNoMemory) {
  const FailAlloc fail(1, FailAlloc::kFromThenOn);
  EXPECT_EQ(serve("start_app\nno-such\n"), "22\n\n");
  EXPECT_EQ(serve("stop_all\n"), "0\n");
}

// A descriptor that is not a socket is read to its end too. It cannot take a reply.
TEST_F(ComFailure, RequestOfAPipeIsExecuted) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "start_app\nclock\n", 16), 16);
  close(ends[1]);
  serve_and_listen(Socket(ends[0]));
  EXPECT_THAT(binding_calls, ElementsAre("start clock"));
  EXPECT_EQ(complaint_, "shutdown failed.: Socket operation on non-socket\n");
  EXPECT_EQ(fcntl(ends[0], F_GETFD), -1);
  EXPECT_EQ(result_, 0U);
}

TEST_F(ComFailure, RequestOfAFileIsExecuted) {
  const TempDir directory;
  write_file(directory / "request", "start_app\nwebserver");
  serve_and_listen(Socket(open((directory / "request").c_str(), O_RDONLY | O_CLOEXEC)));
  EXPECT_THAT(binding_calls, ElementsAre("start webserver"));
  EXPECT_EQ(result_, 0U);
}

TEST_F(ComFailure, SignalDuringAReadOnlyDelaysTheRequest) {
  int calls = 0;
  Hook hook("recv", [&](int fd, void* bytes, size_t size, int flags) -> ssize_t {
    errno = EINTR;
    return ++calls % 2 == 1 ? -1 : recv(fd, bytes, size, flags);
  });
  EXPECT_EQ(serve("stop_all\n"), "0\n");
}

// What arrived before counts, as after an end of the data.
TEST_F(ComFailure, ReadErrorEndsTheRequest) {
  int calls = 0;
  Hook hook("recv", [&](int fd, void* bytes, size_t size, int flags) -> ssize_t {
    if (++calls == 1) return recv(fd, bytes, size, flags);
    errno = ECONNRESET;
    return -1;
  });
  EXPECT_EQ(serve("stop_all\n"), "0\n");
}

TEST_F(ComFailure, NoConnectionLeavesADescriptorOpen) {
  set_three_statuses();
  const long before = count_descriptors();
  for (const char* request : {"", "status_all\n", "start_app\nclock\n", "unknown\n"}) {
    serve(request);
    EXPECT_EQ(count_descriptors(), before);
  }
}

// Another thread may own the socket's number as soon as it is closed.
TEST_F(ComFailure, ConnectionIsClosedOnce) {
  std::vector<int> closed;
  Hook close_hook("close", [&](int fd) {
    closed.push_back(fd);
    return ::close(fd);
  });
  auto [client, server] = socket_pair();
  client.send("stop_all\n");
  client.end_sending();
  const int number = server.fd();
  EXPECT_EQ(serve(client, std::move(server)), "0\n");
  EXPECT_THAT(closed, ElementsAre(number));
}

int synced = -1;
int shut = -1;
int shut_how = -1;

TEST_F(ComFailure, ConnectionIsSyncedAndShutBeforeItIsClosed) {
  const Hook sync(
      "fsync", +[](int fd) {
        synced = fd;
        errno = EINVAL;
        return -1;
      });
  const Hook shutdown(
      "shutdown", +[](int fd, int how) {
        shut = fd;
        shut_how = how;
        return ::shutdown(fd, how);
      });
  auto [client, server] = socket_pair();
  client.send("stop_all\n");
  client.end_sending();
  const int number = server.fd();
  EXPECT_EQ(serve(client, std::move(server)), "0\n");
  EXPECT_EQ(result_, 0U);
  EXPECT_EQ(synced, number);
  EXPECT_EQ(shut, number);
  EXPECT_EQ(shut_how, SHUT_RDWR);
}

TEST_F(ComFailure, FailedShutdownIsPrintedAndDoesNotCount) {
  const Hook hook(
      "shutdown", +[](int, int) {
        errno = ENOTCONN;
        return -1;
      });
  auto [client, server] = socket_pair();
  client.end_sending();
  const std::string number = std::to_string(server.fd());
  serve_and_listen(std::move(server));
  EXPECT_EQ(complaint_, "shutdown failed.: Transport endpoint is not connected\n");
  EXPECT_EQ(printed_, "fd is " + number);
  EXPECT_EQ(result_, 0U);
}

int uncloseable = -1;

TEST_F(ComFailure, FailedCloseIsPrintedAndTheResult) {
  const Hook hook(
      "close", +[](int fd) {
        const int result = ::close(fd);
        if (fd != uncloseable) return result;
        errno = EIO;
        return -1;
      });
  auto [client, server] = socket_pair();
  client.end_sending();
  uncloseable = server.fd();
  serve_and_listen(std::move(server));
  EXPECT_EQ(complaint_, "close failed: Input/output error\n");
  EXPECT_EQ(printed_, "fd is " + std::to_string(uncloseable));
  EXPECT_EQ(result_, static_cast<uint32_t>(EIO));
}

TEST_F(ComFailure, InvalidConnectionFailsToShutAndToClose) {
  serve_and_listen(Socket(-1));
  EXPECT_EQ(complaint_,
            "shutdown failed.: Bad file descriptor\n"
            "close failed: Bad file descriptor\n");
  EXPECT_EQ(printed_, "fd is -1fd is -1");
  EXPECT_EQ(result_, static_cast<uint32_t>(EBADF));
}

// Statuses whose blocks fill several writes.
void set_large_statuses(int count, size_t detail_size) {
  const std::string detail(detail_size, 'd');
  for (int i = 0; i < count; ++i)
    tq_set_application_status_normal(("application-" + std::to_string(i)).c_str(), detail.c_str());
}

int sends = 0;
int working_sends = 0;

ssize_t failing_send(int fd, const void* bytes, size_t size, int flags) {
  if (++sends <= working_sends) return ::send(fd, bytes, size, flags);
  errno = EPIPE;
  return -1;
}

TEST_F(ComFailure, FailedWriteEndsTheListEarly) {
  set_large_statuses(100, 200);
  const std::string whole = serve("status_all\n");
  LogCapture log(TQ_LOG_DEBUG);
  const Hook hook("send", &failing_send);
  const LiveAllocations live;
  sends = 0;
  working_sends = 2;
  const std::string part = serve("status_all\n");
  EXPECT_EQ(result_, 0U);
  EXPECT_EQ(sends, 3);
  EXPECT_LT(part.size(), whole.size());
  EXPECT_TRUE(whole.starts_with(part));
  EXPECT_EQ(live.count(), 3);  // the first record alone, as always
  EXPECT_THAT(unit_messages(log, kUnit), Not(Contains("debug: sending status of application-99")));
  EXPECT_EQ(unit_messages(log, kUnit).back(), "debug: sending status done");
}

TEST_F(ComFailure, ShortListGoesOutInOneWrite) {
  set_large_statuses(20, 100);
  const std::string whole = serve("status_all\n");
  const Hook hook("send", &failing_send);
  sends = 0;
  working_sends = 1;
  EXPECT_EQ(serve("status_all\n"), whole);
  EXPECT_EQ(sends, 1);
}

TEST_F(ComFailure, SignalDuringAWriteOnlyDelaysTheReply) {
  int calls = 0;
  Hook hook("send", [&](int fd, const void* bytes, size_t size, int flags) -> ssize_t {
    errno = EINTR;
    return ++calls < 3 ? -1 : send(fd, bytes, size, flags);
  });
  EXPECT_EQ(serve("stop_all\n"), "0\n");
}

TEST_F(ComFailure, ClientThatIsGoneRaisesNoSignal) {
  signal(SIGPIPE, SIG_DFL);
  set_large_statuses(100, 200);
  for (const char* request : {"status_all\n", "start_app\nclock\n", "stop_all\n"}) {
    auto [client, server] = socket_pair();
    client.send(request);
    client.close();
    EXPECT_EQ(tq_request_handler(server.release()), 0U);
  }
  EXPECT_THAT(binding_calls, ElementsAre("start clock", "stop clock"));
}

TEST_F(ComFailure, SignalsOfTheProcessStayAsTheyAre) {
  struct sigaction action = {};
  sigset_t before = {};
  sigset_t during = {};
  signal(SIGPIPE, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  Hook hook("send", [&](int, const void*, size_t size, int) {
    sigaction(SIGPIPE, nullptr, &action);
    pthread_sigmask(SIG_SETMASK, nullptr, &during);
    return static_cast<ssize_t>(size);
  });
  serve("stop_all\n");
  EXPECT_EQ(action.sa_handler, SIG_DFL);
  EXPECT_EQ(sigismember(&during, SIGPIPE), 0);
  sigaction(SIGPIPE, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_F(ComFailure, ListThatMemoryDoesNotHoldIsShort) {
  set_three_statuses();
  {
    const FailAlloc fail(2, FailAlloc::kFromThenOn);  // after the list itself
    EXPECT_EQ(serve("status_all\n"), "");
  }
  {
    const FailAlloc fail(6, FailAlloc::kFromThenOn);  // and after one record
    EXPECT_EQ(serve("status_all\n"), "web\n0\nstarted app\n");
  }
  const FailAlloc fail(1);
  EXPECT_EQ(serve("status_all\n"), "");
}

}  // namespace
}  // namespace tarvio_test
