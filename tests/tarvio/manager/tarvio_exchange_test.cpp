// Managers that are not there, do not answer or break off, and output that cannot be written.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <deque>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "manager/manager_client.h"
#include "process/failure.h"
#include "support/children.h"
#include "support/com/one_reply.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/packages/package_listing.h"
#include "support/programs/tarvio.h"
#include "tarvio/com.h"
#include "terminal/output.h"

// What the next connect and send of this process fail with; 0 for nothing. The program's own calls
// come here first.
static int connect_error = 0;
static int send_error = 0;

extern "C" int connect(int fd, const sockaddr* address, socklen_t size) {
  if (connect_error != 0) {
    errno = std::exchange(connect_error, 0);
    return -1;
  }
  return static_cast<int>(::syscall(SYS_connect, fd, address, size));
}

extern "C" ssize_t send(int fd, const void* bytes, size_t size, int flags) {
  if (send_error != 0) {
    errno = std::exchange(send_error, 0);
    return -1;
  }
  return ::sendto(fd, bytes, size, flags, nullptr, 0);
}

namespace tarvio_test {
namespace {

using Line = std::vector<std::string>;

const std::vector<Line> kRequests = {
    {"status"},        {"status", "clock", "--json"}, {"start", "clock"},
    {"stop", "clock"}, {"start-all", "--json"},       {"stop-all"},
};

constexpr char kNoManager[] =
    "tarvio: no manager answers on " TQ_COM_SOCKET_PATH "; is tarviod running?\n";
constexpr char kNoAnswer[] =
    "tarvio: no answer from the manager in time, it may be busy; use --timeout SECONDS to wait "
    "longer\n";

Line with_timeout(Line line, const std::string& seconds) {
  line.insert(line.end(), {"--timeout", seconds});
  return line;
}

void expect(const Ran& run, int status, const std::string& errors) {
  EXPECT_EQ(run.status, status);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, errors);
}

TEST(ClientWithoutAManager, SaysSo) {
  for (const Line& line : kRequests) expect(run_tarvio(line), 3, kNoManager);
}

TEST(ClientWithoutAManager, SaysThatItMayNotReachIt) {
  const Socket manager = listen_on(TQ_COM_SOCKET_PATH);
  ::chmod(TQ_COM_SOCKET_PATH, 0);
  for (const Line& line : kRequests) {
    expect(run_tarvio(line, give_up_file_permissions), 1,
           "tarvio: no permission to use " TQ_COM_SOCKET_PATH
           "; run tarvio as root or as a member of the socket's group\n");
  }
}

TEST(ClientWithoutAManager, IsNotMisledByTheSocketThatOneLeft) {
  listen_on(TQ_COM_SOCKET_PATH).close();
  expect(run_tarvio({"status"}), 3, kNoManager);
}

TEST(ClientWithoutAnAnswer, GivesUp) {
  const Socket silent = listen_on(TQ_COM_SOCKET_PATH, 100);
  for (const Line& line : kRequests) expect(run_tarvio(with_timeout(line, "0.05")), 5, kNoAnswer);
}

TEST(ClientWithoutAnAnswer, GivesUpWhenItCannotEvenConnect) {
  const Socket busy = listen_on(TQ_COM_SOCKET_PATH, 0);
  std::deque<Socket> others;
  do {
    others.push_back(new_socket());
  } while (try_to_connect(others.back(), TQ_COM_SOCKET_PATH));
  expect(run_tarvio({"start", "clock", "--timeout", "0.05"}), 5, kNoAnswer);
}

TEST(ClientWithoutAnAnswer, GivesUpInTheMiddleOfAReply) {
  const Socket listener = listen_on(TQ_COM_SOCKET_PATH);
  Socket client;
  std::thread server([&] {
    client = accept_on(listener);
    client.send("clock\n0\nsta");
  });
  expect(run_tarvio({"status", "--timeout", "0.2"}), 5, kNoAnswer);
  server.join();
}

TEST(ClientWithoutAnAnswer, GivesUpAfterTheShortestTimeToo) {
  const Socket silent = listen_on(TQ_COM_SOCKET_PATH);
  expect(run_tarvio({"status", "--timeout", "0.000000001"}), 5, kNoAnswer);
}

TEST(ClientWithoutAnAnswer, GivesUpEvenIfSignalsWereLeftBlocked) {
  const Socket silent = listen_on(TQ_COM_SOCKET_PATH);
  const Ran run = run_tarvio({"status", "--timeout", "0.05"}, [] {
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
  });
  expect(run, 5, kNoAnswer);
}

TEST(ClientWithATimeoutOfZero, WaitsForTheAnswer) {
  const Socket listener = listen_on(TQ_COM_SOCKET_PATH);
  std::thread server([&] {
    const Socket client = accept_on(listener);
    client.read_to_end();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    client.send("0\n\n");
  });
  EXPECT_EQ(run_tarvio({"stop", "clock", "--timeout", "0"}).status, 0);
  server.join();
}

// A manager that dies with a request in its hands.
class BrokenConnection {
 public:
  explicit BrokenConnection(std::string reply)
      : listener_(listen_on(TQ_COM_SOCKET_PATH)), thread_([this, reply = std::move(reply)] {
          const Socket client = accept_on(listener_);
          pollfd waited = {.fd = client.fd(), .events = POLLIN, .revents = 0};
          ::poll(&waited, 1, -1);
          client.send(reply);
        }) {}
  ~BrokenConnection() { thread_.join(); }
  BrokenConnection(const BrokenConnection&) = delete;
  BrokenConnection& operator=(const BrokenConnection&) = delete;

 private:
  Socket listener_;
  std::thread thread_;
};

TEST(ClientWithABrokenConnection, SaysSo) {
  for (const Line& line : kRequests) {
    const BrokenConnection manager("");
    expect(run_tarvio(line), 1,
           "tarvio: the connection to the manager broke: Connection reset by peer\n");
  }
}

// What is said, and the exit status.
using Said = std::pair<std::string, int>;

Said failure_of_request() {
  try {
    const client::Answer answer = client::ask_manager("status_all", nullptr, 0);
    return {client::broken_off(answer), answer.error};
  } catch (const client::Failure& failure) {
    return {failure.what(), failure.status()};
  }
}

TEST(ClientThatCannotSend, DoesNotTakeTheSilenceForAnAnswer) {
  const OneReply manager("");
  send_error = ENOBUFS;
  EXPECT_EQ(failure_of_request(),
            Said("the connection to the manager broke: No buffer space available", ENOBUFS));
}

TEST(ClientThatCannotConnect, SaysWhy) {
  connect_error = ENOMEM;
  EXPECT_EQ(
      failure_of_request(),
      Said("cannot connect to " TQ_COM_SOCKET_PATH ": Cannot allocate memory", client::kFailed));
}

TEST(ClientThatCannotMakeASocket, SaysSo) {
  rlimit before = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {.rlim_cur = 0, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  try {
    (void)client::ask_manager("status_all", nullptr, 0);
    ADD_FAILURE() << "there was a socket";
  } catch (const client::Failure& failure) {
    EXPECT_STREQ(failure.what(), "cannot make a socket: Too many open files");
    EXPECT_EQ(failure.code(), EMFILE);
    EXPECT_EQ(failure.status(), client::kFailed);
  }
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

using ClientOutput = WithoutPackages;

TEST_F(ClientOutput, ThatCannotBeWrittenIsAFailure) {
  add_package("clock");
  for (const Line& line :
       {Line{"list"}, Line{"list", "--json"}, Line{"--help"}, Line{"--version"}}) {
    const Ran run =
        run_tarvio(line, [] { ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "tarvio: cannot write the output: No space left on device\n");
  }
}

TEST_F(ClientOutput, MayBeOnlyErrors) {
  for (const char* const option : {"-q", "--quiet"}) {
    const OneReply manager("0\n\n");
    expect(run_tarvio({"stop", "clock", option}), 0, "");
  }
  const OneReply manager("13\n\n");
  expect(run_tarvio({"-q", "stop", "clock"}), 1,
         "tarvio: cannot stop 'clock': Permission denied (13)\n");
}

TEST_F(ClientOutput, MayBeOnlyErrorsAndJson) {
  const OneReply manager("0\n\n");
  EXPECT_EQ(run_tarvio({"stop", "clock", "-q", "--json"}).output.front(), '{');
}

TEST_F(ClientOutput, OfARequestThatSucceededIsAFailureToo) {
  const OneReply manager("0\n\n");
  const Ran run = run_tarvio({"stop", "clock"}, [] { ::close(STDOUT_FILENO); });
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: cannot write the output: Bad file descriptor\n");
}

TEST(ClientOutputInPieces, StaysAFailureAfterOneThatWasLost) {
  const pid_t client = ::fork();
  if (client == 0) {
    ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    (void)client::print("stopped clock\n");
    ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    ::_exit(client::print("removed clock\n") ? 0 : 1);
  }
  EXPECT_EQ(exit_status_of(client), 1);
}

}  // namespace
}  // namespace tarvio_test
