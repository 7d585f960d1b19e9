#include "keeper_link.h"

#include <errno.h>
#include <poll.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <utility>

#include "base/pipe.h"
#include "keeper.h"
#include "remains.h"
#include "runtime/run_paths.h"

namespace tarviod {

namespace {

using runtime::kKeeperSocket;
using tarvio::Deadline;
using tarvio::Fd;

constexpr char kOwnProgram[] = "/proc/self/exe";
constexpr char kNewSocket[] = "/run/tarvio/keeper.new";
constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kSocketMode = 0600;
constexpr int kBacklog = 16;
constexpr int kAnswerMs = 3000;
constexpr int kFirstAnswerMs = 20'000;  // of a keeper that has to be executed, on a busy device
constexpr int kEndMs = 60'000;
constexpr int kMaxTries = 3;  // a keeper may end between the connection and its answer

template <size_t Size>
sockaddr_un address_of(const char (&path)[Size]) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  static_assert(Size <= sizeof address.sun_path);
  memcpy(address.sun_path, path, Size);
  return address;
}

Fd new_socket(int flags = 0) {
  return Fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
}

// Not valid, with errno, when nobody listens.
Fd connect_to_keeper() {
  Fd client = new_socket();
  // Of connecting as well, while the queue of the keeper is full.
  const timeval limit = {.tv_sec = kAnswerMs / 1000, .tv_usec = 0};
  if (client.valid()) {
    (void)setsockopt(client.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  }
  const sockaddr_un address = address_of(kKeeperSocket);
  const auto* const peer = reinterpret_cast<const sockaddr*>(&address);
  if (client.valid() && connect(client.get(), peer, sizeof address) != 0) client.reset();
  return client;
}

// The socket gets its mode before it gets its name, so that nobody else can ever connect.
Fd listen_for_managers() {
  Fd listening = new_socket(SOCK_NONBLOCK);
  const sockaddr_un address = address_of(kNewSocket);
  const auto* const own = reinterpret_cast<const sockaddr*>(&address);
  for (const char* path : {kNewSocket, kKeeperSocket}) (void)remove(path);
  if (!listening.valid() || fchmod(listening.get(), kSocketMode) != 0 ||
      bind(listening.get(), own, sizeof address) != 0 || listen(listening.get(), kBacklog) != 0 ||
      rename(kNewSocket, kKeeperSocket) != 0) {
    listening.reset();
  }
  return listening;
}

// The mode does not depend on the caller's umask: clients find the manager's figures in there.
bool make_directory() {
  if (mkdir(runtime::kRunDirectory, kDirectoryMode) != 0) return errno == EEXIST;
  return chmod(runtime::kRunDirectory, kDirectoryMode) == 0;
}

// 0 or the error. Another thread may hold any lock while this one forks, so the keeper is a program
// of its own, which needs none of them.
int spawn_keeper(int listening) {
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) return ENOMEM;
  // It outlives the manager, whose terminal or pipes it must not hold.
  const bool added =
      posix_spawn_file_actions_adddup2(&actions, listening, kKeeperListenFd) == 0 &&
      posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_RDWR, 0) == 0 &&
      posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO) == 0;
  const char* const words[] = {kKeeperName, nullptr};
  pid_t pid = -1;
  const int error = added ? posix_spawn(&pid, kOwnProgram, &actions, nullptr,
                                        const_cast<char* const*>(words), environ)
                          : ENOMEM;
  (void)posix_spawn_file_actions_destroy(&actions);
  return error;
}

bool nobody_listens(int error) { return error == ENOENT || error == ECONNREFUSED; }
// A connection that is not taken ends with EAGAIN.
bool has_timed_out(int error) { return error == ETIMEDOUT || error == EAGAIN; }
bool has_gone(int error) { return error == ECONNRESET || error == EPIPE; }

// Sends the request, and with it this process's output and errors for what is started.
bool send_request(int socket, const KeeperRequest& request) {
  const int fds[] = {STDOUT_FILENO, STDERR_FILENO};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof fds)] = {};
  iovec bytes = {.iov_base = const_cast<KeeperRequest*>(&request), .iov_len = sizeof request};
  msghdr message = {};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* const part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(sizeof fds);
  memcpy(CMSG_DATA(part), fds, sizeof fds);
  return tarvio::retried([&] { return sendmsg(socket, &message, MSG_NOSIGNAL); }) >= 0;
}

// Receives a whole record. False, with errno, when that failed.
bool receive_record(int socket, void* record, size_t size, const Deadline& until) {
  if (!tarvio::wait_for(socket, POLLIN, until)) return false;
  const ssize_t count = tarvio::retried([=] { return recv(socket, record, size, MSG_TRUNC); });
  if (count == static_cast<ssize_t>(size)) return true;
  if (count >= 0) errno = count == 0 ? ECONNRESET : EPROTO;
  return false;
}

// Asks a keeper of another protocol to end, and waits for it.
void end_other_keeper() {
  const Fd socket = connect_to_keeper();
  KeeperRequest request = request_for(Ask::kEnd);
  if (!socket.valid() || !send_request(socket.get(), request)) return;
  const Deadline until = Deadline::after(kEndMs);
  char byte = 0;
  do {
    if (!tarvio::wait_for(socket.get(), POLLIN, until)) return;
  } while (recv(socket.get(), &byte, 1, 0) > 0);
}

}  // namespace

KeeperFound KeeperLink::open() {
  if (join()) return KeeperFound::kRunning;
  const bool is_silent = has_timed_out(errno);
  if (!is_silent && !nobody_listens(errno)) return KeeperFound::kNone;
  const bool had_ledger = end_remains();
  if (!start()) return KeeperFound::kNone;
  if (!had_ledger) return KeeperFound::kStartedWithoutLedger;
  return is_silent ? KeeperFound::kReplaced : KeeperFound::kStarted;
}

// False, with errno, when that failed: nobody may listen.
bool KeeperLink::join() {
  for (int tries = 0; tries < kMaxTries; ++tries) {
    socket_ = connect_to_keeper();
    if (!socket_.valid()) return false;
    if (greet(kAnswerMs)) return true;
    if (errno == EPROTO) {
      end_other_keeper();
    } else if (!has_gone(errno)) {
      return false;
    }
  }
  return false;
}

// Connects before there is a keeper: one that no manager ever reached would not end.
bool KeeperLink::start() {
  if (!make_directory()) return false;
  Fd listening = listen_for_managers();
  if (!listening.valid()) return false;
  socket_ = connect_to_keeper();
  if (socket_.valid()) {
    errno = spawn_keeper(listening.get());
    listening.reset();  // else a keeper that cannot serve would not show
    if (errno == 0 && greet(kFirstAnswerMs)) return true;
  }
  const tarvio::ErrnoKeeper keeper;
  (void)unlink(kKeeperSocket);
  return fail();
}

bool KeeperLink::greet(int milliseconds) {
  const Deadline until = Deadline::after(milliseconds);
  KeeperRequest request = request_for(Ask::kApplications);
  KeeperReply reply;
  KeptApp app = {};
  if (!ask(request, reply, until)) return false;
  while (reply.count-- > 0) {
    if (!next(app, until)) return false;
  }
  return true;
}

bool KeeperLink::ask(const KeeperRequest& request, KeeperReply& reply, const Deadline& until) {
  if (!send_request(socket_.get(), request)) return fail();
  if (!receive_record(socket_.get(), &reply, sizeof reply, until)) return fail();
  if (reply.protocol == kKeeperProtocol && reply.code != EPROTO) return true;
  errno = EPROTO;
  return fail();
}

bool KeeperLink::next(KeptApp& app, const Deadline& until) {
  return receive_record(socket_.get(), &app, sizeof app, until) || fail();
}

bool KeeperLink::take_changes() {
  char byte = 0;
  ssize_t count = 0;
  do count = tarvio::retried([&] { return recv(socket_.get(), &byte, 1, MSG_DONTWAIT); });
  while (count > 0);
  if (count < 0 && errno == EAGAIN) return true;
  if (count == 0) errno = ECONNRESET;
  return fail();
}

bool KeeperLink::fail() {
  close();
  return false;
}

}  // namespace tarviod
