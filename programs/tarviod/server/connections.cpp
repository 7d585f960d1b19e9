#include "connections.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace tarviod {

namespace {

using tarvio::Deadline;

constexpr int kRequestTimeMs = 5000;
constexpr int kPauseMs = 100;
constexpr int kGrowthMs = 100;  // between looks at a request of which a part has come

int unread_bytes(int client) {
  int bytes = 0;
  (void)ioctl(client, FIONREAD, &bytes);
  return bytes;
}

}  // namespace

void Connections::open(int listening_fd, tq_com_handler_func handler) {
  listening_fd_ = listening_fd;
  handler_ = handler;
}

bool Connections::has_client() const {
  pollfd file = {.fd = listening_fd_, .events = POLLIN, .revents = 0};
  return count_ > 0 || poll(&file, 1, 0) == 1;
}

void Connections::wait(Others& others, const Deadline& until) {
  std::copy(others.begin(), others.end(), files_.begin() + kOther);
  files_[kListening] = {.fd = listening_fd_, .events = POLLIN, .revents = 0};
  Deadline next = count_ == 0 ? until : Deadline::sooner(until, all_[0].until);
  for (size_t at = 0; at < count_; ++at) {
    const int unread = unread_bytes(all_[at].fd);
    // Its first bytes end the wait, and would end each one after it.
    const short events = unread == 0 ? POLLIN | POLLRDHUP : POLLRDHUP;
    files_[kFirst + at] = {.fd = all_[at].fd, .events = events, .revents = 0};
    all_[at].has_enough = unread >= kEnoughBytes;
    if (unread > 0) {
      next = Deadline::sooner(next, Deadline::after(all_[at].has_enough ? 0 : kGrowthMs));
    }
  }
  (void)poll(files_.data(), kFirst + count_, next.remaining_ms());
  std::copy_n(files_.begin() + kOther, others.size(), others.begin());
}

bool Connections::advance() {
  for (size_t at = 0; at < count_; ++at) {
    const bool has_ended = (files_[kFirst + at].revents & ~POLLIN) != 0;
    if (!has_ended && !all_[at].has_enough) continue;
    serve(remove(at), has_ended);
    return true;
  }
  return files_[kListening].revents != 0 ? accept_one() : end_overdue();
}

bool Connections::accept_one() {
  if (count_ == kMax) (void)make_room();
  const int client = tq_socket_accept_unix_sock(listening_fd_);
  if (client >= 0) {
    all_[count_++] = {.fd = client, .until = Deadline::after(kRequestTimeMs), .has_enough = false};
  } else if (!make_room()) {
    (void)poll(nullptr, 0, kPauseMs);  // until something frees the descriptor that is short
  }
  return true;
}

// The handler reads to the end of the data.
void Connections::serve(int client, bool has_ended) {
  if (!has_ended) (void)shutdown(client, SHUT_RD);
  (void)handler_(client);
}

bool Connections::end_overdue() {
  if (count_ == 0 || !all_[0].until.passed()) return false;
  (void)close(remove(0));
  return true;
}

// Closes the oldest connection that has sent nothing, else the oldest one.
bool Connections::make_room() {
  if (count_ == 0) return false;
  size_t at = 0;
  while (at < count_ && unread_bytes(all_[at].fd) > 0) ++at;
  (void)close(remove(at < count_ ? at : 0));
  return true;
}

int Connections::remove(size_t at) {
  const auto gone = all_.begin() + at;
  const int client = gone->fd;
  std::move(gone + 1, all_.begin() + count_--, gone);
  return client;
}

}  // namespace tarviod
