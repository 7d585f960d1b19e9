#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <tuple>

#include "support/com/request_handler.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/stdout_capture.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The library's clock. It moves only while the library waits, by what the test says.
int64_t now_ms = 0;

int look_at_clock(clockid_t, timespec* time) {
  *time = {.tv_sec = static_cast<time_t>(now_ms / 1000),
           .tv_nsec = static_cast<long>(now_ms % 1000 * 1000000)};
  return 0;
}

// What happens during a wait; returns the milliseconds that it takes.
std::function<int()> while_waiting;
int waits = 0;

int wait_by_clock(pollfd* descriptors, nfds_t count, int timeout_ms) {
  int ready = poll(descriptors, count, 0);
  while (ready == 0 && timeout_ms > 0) {
    ++waits;
    const int passed = std::min(while_waiting(), timeout_ms);
    now_ms += passed;
    timeout_ms -= passed;
    if (timeout_ms > 0) ready = poll(descriptors, count, 0);
  }
  return ready;
}

constexpr int kForEver = 1000 * 1000;

class ComDeadline : public RequestHandler {
 protected:
  ComDeadline() {
    now_ms = 1000;
    waits = 0;
    std::tie(client_, server_) = socket_pair();
  }

  // The reply of the server to what the client does.
  std::string serve_client() { return serve(client_, std::move(server_)); }

  Socket client_;
  Socket server_;

 private:
  Hook<int (*)(clockid_t, timespec*)> clock_{"clock_gettime", &look_at_clock};
  Hook<int (*)(pollfd*, nfds_t, int)> poll_{"poll", &wait_by_clock};
};

TEST_F(ComDeadline, SilentClientIsLeftAfterFiveSeconds) {
  while_waiting = [] { return kForEver; };
  EXPECT_EQ(serve_client(), "");
  EXPECT_EQ(result_, 0U);
  EXPECT_EQ(now_ms, 6000);
  EXPECT_EQ(waits, 1);
}

TEST_F(ComDeadline, RequestThatDoesNotEndInTimeIsNotExecuted) {
  client_.send("start_app\nclock\n");
  while_waiting = [] { return kForEver; };
  EXPECT_EQ(serve_client(), "");
  EXPECT_EQ(now_ms, 6000);
  EXPECT_THAT(binding_calls, IsEmpty());
}

TEST_F(ComDeadline, BytesNowAndThenBuyNoTime) {
  client_.send("stop_all\n");
  while_waiting = [this] {
    client_.send("x");
    return 900;
  };
  EXPECT_EQ(serve_client(), "");
  EXPECT_EQ(now_ms, 6000);
  EXPECT_EQ(waits, 6);
  EXPECT_THAT(binding_calls, IsEmpty());
}

TEST_F(ComDeadline, LinesNowAndThenBuyNoTime) {
  while_waiting = [this] {
    client_.send("stop_all\n");
    return 4900;
  };
  EXPECT_EQ(serve_client(), "");
  EXPECT_EQ(now_ms, 6000);
}

TEST_F(ComDeadline, StreamThatNeverPausesIsCutAsWell) {
  std::string request = "stop_all\n";
  for (int i = 0; i < 5000; ++i) request += "more\n";
  client_.send(request);
  client_.end_sending();
  Hook hook("recv", [](int fd, void* bytes, size_t, int flags) {
    now_ms += 10;
    return recv(fd, bytes, 5, flags);
  });
  EXPECT_EQ(serve_client(), "");
  EXPECT_EQ(now_ms, 6000);
}

TEST_F(ComDeadline, SilentPipeIsLeftAsWell) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Socket writer(ends[1]);
  while_waiting = [] { return kForEver; };
  const StdoutCapture output;  // it cannot be shut down
  EXPECT_EQ(tq_request_handler(ends[0]), 0U);
  EXPECT_EQ(now_ms, 6000);
}

TEST_F(ComDeadline, RequestThatEndsJustInTimeIsExecuted) {
  client_.send("start_app\ncl");
  while_waiting = [this] {
    client_.send("ock\n");
    client_.end_sending();
    return 4999;
  };
  EXPECT_EQ(serve_client(), "0\n\n");
  EXPECT_THAT(binding_calls, ElementsAre("start clock"));
}

TEST_F(ComDeadline, SignalsDoNotBuyTime) {
  client_.send("stop_all\n");
  Hook hook("poll", [&](pollfd*, nfds_t, int timeout_ms) {
    if (timeout_ms == 0) return 0;
    ++waits;
    now_ms += 1000;
    errno = EINTR;
    return -1;
  });
  EXPECT_EQ(serve_client(), "");
  EXPECT_EQ(waits, 5);
}

std::string set_megabyte_of_statuses() {
  const std::string detail(1000, 'd');
  std::string reply;
  for (int i = 0; i < 1000; ++i) {
    const std::string name = "application-" + std::to_string(i);
    tq_set_application_status_normal(name.c_str(), detail.c_str());
    reply += name + "\n0\n" + detail + "\n";
  }
  return reply;
}

TEST_F(ComDeadline, ClientThatTakesNothingIsLeftAfterFiveSeconds) {
  const std::string whole = set_megabyte_of_statuses();
  client_.send("status_all\n");
  client_.end_sending();
  while_waiting = [] { return kForEver; };
  const std::string part = serve_client();
  EXPECT_LT(part.size(), whole.size());
  EXPECT_TRUE(whole.starts_with(part));
  EXPECT_EQ(now_ms, 6000);
  EXPECT_EQ(result_, 0U);
}

TEST_F(ComDeadline, ReplyThatIsTakenByteByByteIsCutAsWell) {
  set_status("web", 0, std::string(1000, 'd').c_str());
  client_.send("status_all\n");
  client_.end_sending();
  Hook hook("send", [](int fd, const void* bytes, size_t, int flags) {
    now_ms += 100;
    return send(fd, bytes, 1, flags);
  });
  EXPECT_EQ(serve_client().size(), 50U);
  EXPECT_EQ(now_ms, 6000);
}

TEST_F(ComDeadline, EachWriteOfAReplyHasFiveSeconds) {
  const std::string whole = set_megabyte_of_statuses();
  client_.send("status_all\n");
  client_.end_sending();
  std::string taken;
  while_waiting = [&] {
    std::string bytes(100000, '\0');
    const ssize_t count = recv(client_.fd(), bytes.data(), bytes.size(), 0);
    taken.append(bytes, 0, static_cast<size_t>(count));
    return 2000;
  };
  taken += serve_client();
  EXPECT_TRUE(taken == whole);
  EXPECT_GT(now_ms, 11000);
}

}  // namespace
}  // namespace tarvio_test
