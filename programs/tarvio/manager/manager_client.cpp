#include "manager/manager_client.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/deadline.h"
#include "base/owners.h"
#include "base/pipe.h"
#include "process/failure.h"
#include "process/text_pieces.h"
#include "tarvio/com.h"

namespace client {

namespace {

using tarvio::Deadline;

[[noreturn]] void give_up() {
  throw Failure(ETIMEDOUT,
                "no answer from the manager in time, it may be busy; use --timeout SECONDS to wait "
                "longer",
                kTimeout);
}

// Connecting waits while the manager's backlog is full, as long as a send may wait.
void limit_connecting(int fd, const Deadline& deadline) {
  if (!deadline.is_set()) return;
  const int left_ms = std::max(deadline.remaining_ms(), 1);  // 0 would be forever
  const timeval limit = {.tv_sec = left_ms / 1000,
                         .tv_usec = static_cast<suseconds_t>(left_ms % 1000) * 1000};
  (void)setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

tarvio::Fd make_socket() {
  tarvio::Fd fd(tq_socket_create_unix_sock());
  if (!fd.valid()) throw Failure::of_system("cannot make a socket");
  return fd;
}

// Whether connecting failed because there is no manager.
bool is_absence(int error) { return error == ENOENT || error == ECONNREFUSED; }

// False when there is no manager.
bool connect_to_manager(int fd, const Deadline& deadline) {
  limit_connecting(fd, deadline);
  if (tq_socket_connect_unix_sock(fd, TQ_COM_SOCKET_PATH) == 0) return true;
  if (is_absence(errno)) return false;
  switch (errno) {
    case EAGAIN:
      give_up();
    case EACCES:
      throw Failure(EACCES, "no permission to use " TQ_COM_SOCKET_PATH
                            "; run tarvio as root or as a member of the socket's group");
    default:
      throw Failure::of_system("cannot connect to " TQ_COM_SOCKET_PATH);
  }
}

bool send_request(int fd, const char* command, const char* name, const Deadline& deadline) {
  std::string lines = std::string(command) + '\n';
  if (name != nullptr) lines.append(name).append("\n");
  errno = ETIMEDOUT;  // unless something else goes wrong
  return tarvio::send_all(fd, lines, deadline) && shutdown(fd, SHUT_WR) == 0;
}

// False, with errno set, when it broke off. Not by tq_receive_com, which cuts long lines into
// pieces and would lose count of the three lines of a status.
bool read_to_end(int fd, std::string& bytes, const Deadline& deadline) {
  std::array<char, 2048> buffer;
  while (tarvio::wait_for(fd, POLLIN, deadline)) {
    const ssize_t count = tarvio::read_some(fd, buffer);
    if (count <= 0) return count == 0;
    bytes.append(buffer.data(), static_cast<size_t>(count));
  }
  return false;
}

constexpr int kLookAgainMs = 50;

void pause_before(const Deadline& deadline) {
  const int left_ms = deadline.remaining_ms();
  (void)poll(nullptr, 0, left_ms < 0 ? kLookAgainMs : std::min(left_ms, kLookAgainMs));
}

}  // namespace

Answer ask_manager(const char* command, const char* name, double timeout_seconds) {
  const Deadline deadline = Deadline::after_seconds(timeout_seconds);
  const tarvio::Fd fd = make_socket();
  if (!connect_to_manager(fd.get(), deadline)) throw no_manager();
  Answer answer;
  if (send_request(fd.get(), command, name, deadline) &&
      read_to_end(fd.get(), answer.bytes, deadline)) {
    return answer;
  }
  answer.error = errno;
  if (answer.error == ETIMEDOUT) give_up();
  return answer;
}

std::string ask_whole(const char* command, double timeout_seconds) {
  Answer answer = ask_manager(command, nullptr, timeout_seconds);
  if (const std::string broken = broken_off(answer); !broken.empty()) {
    throw Failure(answer.error, broken);
  }
  return std::move(answer.bytes);
}

std::string ask_version(double timeout_seconds) {
  const std::string bytes = ask_whole("version", timeout_seconds);
  const std::vector<std::string> lines = lines_of(bytes);
  if (bytes.empty()) return "";
  if (lines.size() != 2 || lines[0] != "0" || !bytes.ends_with('\n')) {
    throw Failure(EPROTO, "the manager's reply about its version is truncated or garbled");
  }
  return lines[1];
}

std::vector<Status> ask_statuses(const char* command, double timeout_seconds) {
  StatusReply reply = parse_statuses(ask_whole(command, timeout_seconds));
  if (!reply.complete) throw Failure(EPROTO, kTruncated);
  return std::move(reply.statuses);
}

std::string broken_off(const Answer& answer) {
  if (answer.error == 0) return "";
  return std::string("the connection to the manager broke: ") + strerror(answer.error);
}

Failure no_manager() {
  return {ENOTCONN, "no manager answers on " TQ_COM_SOCKET_PATH "; is tarviod running?",
          kNoManager};
}

bool is_manager_there() {
  const tarvio::Fd fd = make_socket();
  (void)fcntl(fd.get(), F_SETFL, O_NONBLOCK);
  return tq_socket_connect_unix_sock(fd.get(), TQ_COM_SOCKET_PATH) == 0 || !is_absence(errno);
}

void await_manager(double seconds) { await(is_manager_there, seconds); }

void await(const std::function<bool()>& condition, double seconds) {
  const Deadline deadline = Deadline::after_seconds(seconds);
  while (!condition() && !deadline.passed()) pause_before(deadline);
}

}  // namespace client
