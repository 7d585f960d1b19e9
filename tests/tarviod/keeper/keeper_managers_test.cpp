// The connections of managers to the keeper.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kept.h"
#include "runtime/run_paths.h"
#include "support/apps/applications.h"
#include "support/children.h"

namespace tarvio_test {
namespace {

using tarvio::Fd;
using tarviod::AppSetup;
using tarviod::Ask;
using tarviod::KeeperFound;
using tarviod::KeeperLink;
using tarviod::KeeperReply;
using tarviod::KeeperRequest;
using tarviod::KeptState;
using tarviod::request_for;

sockaddr_un keeper_address() {
  sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = ""};
  set_text(address.sun_path, runtime::kKeeperSocket);
  return address;
}

Fd new_socket() { return Fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)); }

// A connection whose packets are the test's.
Fd connection() {
  Fd socket = new_socket();
  const sockaddr_un address = keeper_address();
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    ADD_FAILURE() << "cannot connect: " << std::strerror(errno);
  return socket;
}

void send(const Fd& socket, const KeeperRequest& request, size_t size = sizeof(KeeperRequest)) {
  EXPECT_EQ(::send(socket.get(), &request, size, MSG_NOSIGNAL), static_cast<ssize_t>(size));
}

// -1 when the keeper has closed the connection.
int code_from(const Fd& socket) {
  KeeperReply reply;
  if (!tarvio::wait_for(socket.get(), POLLIN, patience())) ADD_FAILURE() << "no answer";
  return ::recv(socket.get(), &reply, sizeof reply, MSG_DONTWAIT) == sizeof reply ? reply.code : -1;
}

using KeeperManagers = Kept;

TEST_F(KeeperManagers, ComeAndGo) {
  EXPECT_EQ(start("clock", setup()), 0);
  const pid_t process = app("clock").process.pid;
  link_ = KeeperLink();
  EXPECT_EQ(link_.open(), KeeperFound::kRunning);
  EXPECT_EQ(app("clock").process.pid, process);
  EXPECT_EQ(app("clock").state, KeptState::kRunning);
}

TEST_F(KeeperManagers, HearOfEachChange) {
  KeeperLink watch;
  ASSERT_EQ(watch.open(), KeeperFound::kRunning);
  EXPECT_EQ(ask(watch, Ask::kWatch), 0);
  EXPECT_FALSE(tarvio::wait_for(watch.fd(), POLLIN, tarvio::Deadline::after(0)));
  EXPECT_EQ(start("clock", setup("until [ -e go ]; do sleep 0.01; done")), 0);
  ASSERT_TRUE(tarvio::wait_for(watch.fd(), POLLIN, patience()));
  EXPECT_TRUE(watch.take_changes());
  write_file(directory_ / "go", "");
  ASSERT_TRUE(becomes("clock", KeptState::kEnded));
  EXPECT_TRUE(tarvio::wait_for(watch.fd(), POLLIN, patience()));
}

TEST_F(KeeperManagers, HearOfTheKeepersEnd) {
  KeeperLink watch;
  ASSERT_EQ(watch.open(), KeeperFound::kRunning);
  EXPECT_EQ(ask(watch, Ask::kWatch), 0);
  ::kill(keeper_process(), SIGKILL);
  ASSERT_TRUE(tarvio::wait_for(watch.fd(), POLLIN, patience()));
  EXPECT_FALSE(watch.take_changes());
  EXPECT_FALSE(watch.valid());
  EXPECT_EQ(ask(link_, Ask::kStop, "clock"), -1);
  EXPECT_FALSE(link_.valid());
}

// Far more than a socket takes at once.
TEST_F(KeeperManagers, LearnOfManyApplications) {
  constexpr size_t kApplications = 600;
  AppSetup quick = setup();
  set_text(quick.start_file, "/bin/true");
  for (size_t started = 0; started < kApplications; ++started)
    ASSERT_EQ(start("app" + std::to_string(started), quick), 0);
  const Fd idle = connection();
  send(idle, request_for(Ask::kApplications));  // takes none of its records, and holds up nobody
  EXPECT_EQ(applications(link_).size(), kApplications);
}

TEST_F(KeeperManagers, DoNotHoldUpOthersWhenTheyHang) {
  const Fd hung = connection();
  const KeeperRequest request = request_for(Ask::kStop);
  // Until the keeper has closed it, since its replies are not taken.
  while (::send(hung.get(), &request, sizeof request, MSG_NOSIGNAL) > 0) {
  }
  EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET) << std::strerror(errno);
  EXPECT_EQ(start("clock", setup()), 0);
}

TEST_F(KeeperManagers, AreReplacedByLaterOnesWhenTheyAreMany) {
  std::vector<Fd> silent;
  for (int connected = 0; connected < 100; ++connected) silent.push_back(connection());
  KeeperLink late;
  EXPECT_EQ(late.open(), KeeperFound::kRunning);
  EXPECT_EQ(ask(late, Ask::kStart, "clock", setup()), 0);
}

TEST_F(KeeperManagers, MayHaveAnyMistakeInTheirRequests) {
  KeeperRequest request = request_for(static_cast<Ask>(99));
  Fd socket = connection();
  send(socket, request);
  EXPECT_EQ(code_from(socket), EINVAL);
  send(socket, request, sizeof request - 1);
  EXPECT_EQ(code_from(socket), EPROTO);
  send(socket, request, 1);
  EXPECT_EQ(code_from(socket), -1);
  request.ask = Ask::kStart;
  std::memset(request.name, 'x', sizeof request.name);
  std::memset(static_cast<void*>(&request.setup), 'x', sizeof request.setup);
  socket = connection();
  send(socket, request);
  EXPECT_EQ(code_from(socket), 0);
  EXPECT_EQ(applications(link_).size(), 1U);
}

TEST_F(KeeperManagers, AreOfRootAlone) {
  struct stat info = {};
  ASSERT_EQ(::stat(runtime::kKeeperSocket, &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
  ASSERT_EQ(::chmod(runtime::kKeeperSocket, 0666), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setuid(12345) != 0) ::_exit(2);
    ::_exit(code_from(connection()) == -1 ? 0 : 1);  // closed before it asks anything
  }
  const int status = exit_status_of(child);
  if (status == 2) GTEST_SKIP() << "there is no other user in this sandbox";
  EXPECT_EQ(status, 0);
}

TEST_F(KeeperManagers, OfAnotherReleaseCanOnlyEndIt) {
  KeeperRequest request = request_for(Ask::kApplications);
  request.protocol = tarviod::kKeeperProtocol + 1;
  const Fd socket = connection();
  send(socket, request);
  EXPECT_EQ(code_from(socket), EPROTO);
  const pid_t keeper = keeper_process();
  request.ask = Ask::kEnd;
  send(socket, request, 2 * sizeof(uint32_t));
  EXPECT_EQ(code_from(socket), 0);
  EXPECT_EQ(exit_status_of(keeper), 0);
}

// A keeper that answers in another protocol until it is asked to end.
void be_keeper_of_another_release() {
  std::filesystem::create_directories(runtime::kRunDirectory);
  const Fd listening = new_socket();
  const sockaddr_un address = keeper_address();
  if (::bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listening.get(), 5) != 0) {
    ADD_FAILURE() << "cannot listen: " << std::strerror(errno);
  }
  const pid_t child = ::fork();
  if (child != 0) return;
  while (true) {
    const Fd manager(::accept(listening.get(), nullptr, nullptr));
    KeeperRequest request = {};
    while (::recv(manager.get(), &request, sizeof request, 0) > 0) {
      if (request.ask == Ask::kEnd) ::unlink(runtime::kKeeperSocket);
      const KeeperReply reply = {.protocol = 99, .code = EPROTO, .count = 0};
      (void)::send(manager.get(), &reply, sizeof reply, MSG_NOSIGNAL);
      if (request.ask == Ask::kEnd) ::_exit(0);
    }
  }
}

class KeeperOfAnotherRelease : public Kept {
 protected:
  void SetUp() override { be_keeper_of_another_release(); }
};

TEST_F(KeeperOfAnotherRelease, IsReplaced) {
  EXPECT_EQ(link_.open(), KeeperFound::kStarted);
  EXPECT_TRUE(applications(link_).empty());
}

}  // namespace
}  // namespace tarvio_test
