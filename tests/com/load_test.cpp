// Bad input and load against a manager in its own process. After each the next good request is
// answered, and the manager holds no more descriptors and memory than before, except for the one
// record that each status request leaves (oddity 122).

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "support/com/manager.h"
#include "support/com/sockets.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {
namespace {

using namespace std::chrono_literals;

constexpr int kStatuses = 20;
constexpr int kAllocationsLeftPerStatusRequest = 3;  // record, name and detail

void set_statuses() {
  for (int i = 0; i < kStatuses; ++i)
    tq_set_application_status_normal(("status-" + std::to_string(i)).c_str(), "detail");
}

std::string expected_statuses() {
  std::string reply;
  for (int i = 0; i < kStatuses; ++i) reply += "status-" + std::to_string(i) + "\n0\ndetail\n";
  return reply;
}

std::string request(std::string_view bytes) { return ask(TQ_COM_SOCKET_PATH, bytes); }

class Load : public testing::Test {
 protected:
  Load() { check(); }

  // A good request is answered; whatever came before has ended then.
  void check() {
    EXPECT_EQ(request("status_all\n"), expected_statuses());
    ++status_requests_;
  }

  void start_measuring() {
    check();
    descriptors_ = descriptors();
    allocations_ = allocations();
    status_requests_ = 0;
  }

  // Status requests of the test, those of check() not counted.
  void expect_nothing_left(int status_requests = 0) {
    check();
    EXPECT_EQ(descriptors(), descriptors_);
    const long left = (status_requests_ + status_requests) * kAllocationsLeftPerStatusRequest;
    EXPECT_EQ(allocations() - allocations_, left);
  }

  // The manager may still be at the end of the connection that was answered last.
  template <typename Figure>
  long at_rest(Figure figure) const {
    long value = figure();
    for (int same = 0; same < 5;) {
      std::this_thread::sleep_for(10ms);
      const long before = std::exchange(value, figure());
      same = value == before && manager_.is_waiting() ? same + 1 : 0;
    }
    return value;
  }
  long descriptors() const {
    return at_rest([this] { return count_descriptors(manager_.pid()); });
  }
  long allocations() const {
    return at_rest([this] { return manager_.live_allocations(); });
  }

  const ManagerProcess manager_{{{"clock"}}, set_statuses};

 private:
  long descriptors_ = 0;
  long allocations_ = 0;
  int status_requests_ = 0;
};

TEST_F(Load, OddRequestsLeaveNothing) {
  start_measuring();
  using namespace std::string_literals;
  std::string lines = "unknown\n";
  for (int i = 0; i < 10000; ++i) lines += "line\n";
  const std::pair<std::string, std::string> exchanges[] = {
      {"", ""},
      {"\n", ""},
      {"unknown\n", ""},
      {std::string(1 << 20, 'x'), ""},
      {lines, ""},
      {std::string(5000, '\0'), ""},
      {"status_all\0\n\0"s + std::string(1000, '\0'), expected_statuses()},
      {"start_app\n" + std::string(300, 'n') + "\n", "22\n\n"},
      {"start_app\n", "22\n\n"},
      {"stop_app\n", ""},
      {std::string(1000, '\n'), ""},
      {std::string("\xff\xfe\x80\n"), ""},
  };
  for (const auto& [bytes, reply] : exchanges) {
    EXPECT_EQ(request(bytes), reply) << testing::PrintToString(bytes.substr(0, 40));
    check();
  }
  expect_nothing_left(1);
}

TEST_F(Load, ClientsThatGoInTheMiddleLeaveNothing) {
  start_measuring();
  for (const char* bytes :
       {"", "s", "status_al", "start_app", "start_app\n", "start_app\nno-such"}) {
    connect_to(TQ_COM_SOCKET_PATH).send(bytes);
    const Socket half_gone = connect_to(TQ_COM_SOCKET_PATH);
    half_gone.send(bytes);
    shutdown(half_gone.fd(), SHUT_RDWR);
  }
  for (int i = 0; i < 10; ++i) connect_to(TQ_COM_SOCKET_PATH).send("status_all\n");
  expect_nothing_left(10);
}

TEST_F(Load, TwoHundredClientsAtOnceAreAllAnswered) {
  start_measuring();
  std::atomic<int> answered = 0;
  std::vector<std::thread> clients;
  for (int i = 0; i < 200; ++i) {
    clients.emplace_back([&] {
      if (request("status_all\n") == expected_statuses()) ++answered;
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(answered, 200);
  expect_nothing_left(200);
}

TEST_F(Load, BurstOfAThousandConnectionsLeavesNothing) {
  start_measuring();
  for (int i = 0; i < 1000; ++i) connect_to(TQ_COM_SOCKET_PATH);
  expect_nothing_left();
}

TEST_F(Load, ThousandRequestsWhoseRepliesNobodyReadsLeaveNothing) {
  start_measuring();
  for (int i = 0; i < 1000; ++i) {
    const Socket client = connect_to(TQ_COM_SOCKET_PATH);
    client.send("start_app\nno-such\n");
    client.end_sending();
  }
  expect_nothing_left();
}

// Tries to connect this many clients at once; gives those that the manager's backlog took.
std::vector<Socket> connect_many(int count) {
  std::vector<Socket> taken;
  for (int i = 0; i < count; ++i) {
    Socket client = new_socket();
    if (try_to_connect(client, TQ_COM_SOCKET_PATH)) taken.push_back(std::move(client));
  }
  return taken;
}

TEST_F(Load, RequestWaitsForTheDeadlinesOfThreeHundredSilentClients) {
  start_measuring();
  const std::vector<Socket> silent = connect_many(300);
  EXPECT_GE(silent.size(), 5U);
  EXPECT_LE(silent.size(), 8U);
  const auto start = std::chrono::steady_clock::now();
  check();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s * silent.size() + 10s);
  for (const Socket& client : silent) EXPECT_EQ(client.read_to_end(), "");
  expect_nothing_left();
}

class StalledClient : public Load {
 protected:
  // Runs the client, and a good request after it, which has to wait for the deadline.
  void expect_to_hold_for_five_seconds(const std::function<void(const Socket&)>& act) {
    start_measuring();
    const auto start = std::chrono::steady_clock::now();
    const Socket stalled = connect_to(TQ_COM_SOCKET_PATH);
    std::atomic<bool> stop = false;
    std::thread actor([&] {
      while (!stop) act(stalled);
    });
    check();
    EXPECT_GE(std::chrono::steady_clock::now() - start, 5s);
    stop = true;
    actor.join();
    EXPECT_EQ(stalled.read_to_end(), "");
    expect_nothing_left();
  }
};

TEST_F(StalledClient, ThatIsSilentIsClosedUnanswered) {
  expect_to_hold_for_five_seconds([](const Socket&) { std::this_thread::sleep_for(50ms); });
}

TEST_F(StalledClient, ThatSendsAByteNowAndThenIsClosedUnanswered) {
  // A complete request, were it not for the end of data: executed, it would add a status.
  std::string rest = "start_app\nclock\n";
  expect_to_hold_for_five_seconds([rest](const Socket& socket) mutable {
    const char byte = rest.empty() ? 'x' : rest.front();
    if (!rest.empty()) rest.erase(0, 1);
    send(socket.fd(), &byte, 1, MSG_NOSIGNAL);
    std::this_thread::sleep_for(100ms);
  });
}

TEST(LoadOfStatuses, ClientThatNeverReadsIsLeftAfterFiveSeconds) {
  const ManagerProcess manager({}, [] {
    for (int i = 0; i < 1000; ++i)
      tq_set_application_status_normal(("status-" + std::to_string(i)).c_str(),
                                       std::string(1000, 'd').c_str());
  });
  const auto start = std::chrono::steady_clock::now();
  const Socket deaf = connect_to(TQ_COM_SOCKET_PATH);
  deaf.send("status_all\n");
  deaf.end_sending();
  const std::string whole = request("status_all\n");
  EXPECT_GE(std::chrono::steady_clock::now() - start, 5s);
  EXPECT_GT(whole.size(), 1000U * 1000U);
  const std::string part = deaf.read_to_end();
  EXPECT_LT(part.size(), whole.size());
  EXPECT_TRUE(whole.starts_with(part));
}

void limit_descriptors() {
  const rlimit limit = {64, 64};
  setrlimit(RLIMIT_NOFILE, &limit);
}

std::vector<Application> many_applications() {
  std::vector<Application> applications;
  for (int i = 100; i < 140; ++i) applications.push_back({"application-" + std::to_string(i)});
  return applications;
}

TEST(LoadOfDescriptors, ManagerOutOfThemStillAnswers) {
  const ManagerProcess manager(many_applications(), limit_descriptors);
  int refused = 0;
  for (int i = 100; i < 140; ++i) {  // each start costs two for good
    const std::string name = "application-" + std::to_string(i);
    const std::string reply = request("start_app\n" + name + "\n");
    if (reply == std::to_string(EMFILE) + "\n\n") ++refused;
    EXPECT_TRUE(request("status_all\n").ends_with("\n"));
  }
  EXPECT_GT(refused, 0);
  EXPECT_GT(count_descriptors(manager.pid()), 55);
}

// Sets how many descriptors the manager may have; gives what it was.
rlimit set_descriptor_limit(const ManagerProcess& manager, rlim_t count) {
  rlimit before = {};
  prlimit(manager.pid(), RLIMIT_NOFILE, nullptr, &before);
  const rlimit limit = {count, before.rlim_max};
  if (prlimit(manager.pid(), RLIMIT_NOFILE, &limit, nullptr) != 0) ADD_FAILURE() << "no prlimit";
  return before;
}

TEST(LoadOfDescriptors, ManagerWithoutAnyWaitsAndRecovers) {
  const ManagerProcess manager({}, set_statuses);
  const rlimit before = set_descriptor_limit(manager, 3);
  // The accept that waits may have its number already; the next one gets none.
  Socket first = connect_to(TQ_COM_SOCKET_PATH);
  first.end_sending();
  const double cpu_before = manager.cpu_seconds();
  std::this_thread::sleep_for(3s);
  EXPECT_LT(manager.cpu_seconds() - cpu_before, 0.05);
  set_descriptor_limit(manager, before.rlim_cur);
  EXPECT_EQ(first.read_to_end(), "");
  EXPECT_EQ(request("status_all\n"), expected_statuses());
}

}  // namespace
}  // namespace tarvio_test
