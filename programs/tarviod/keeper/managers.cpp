#include "managers.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/pipe.h"

namespace tarviod {

namespace {

using tarvio::Fd;

// Never waits, so that a manager that hangs holds nobody up.
bool send_packet(int socket, const void* bytes, size_t size) {
  return tarvio::retried([=] { return send(socket, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL); }) >=
         0;
}

bool is_from_own_user(int socket) {
  ucred peer = {};
  socklen_t size = sizeof peer;
  return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

// A manager sends its output and its errors along.
void take_streams(msghdr& message, Streams& streams) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
    int fds[2] = {-1, -1};
    memcpy(fds, CMSG_DATA(part), std::min(sizeof fds, part->cmsg_len - CMSG_LEN(0)));
    streams = {.output = Fd(fds[0]), .errors = Fd(fds[1])};
  }
}

// What recv returns.
ssize_t receive_request(int socket, KeeperRequest& request, Streams& streams) {
  alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))];
  iovec bytes = {.iov_base = &request, .iov_len = sizeof request};
  msghdr message = {};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t count =
      tarvio::retried([&] { return recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC); });
  if (count > 0) take_streams(message, streams);
  return count;
}

template <size_t Size>
void end_text(char (&text)[Size]) {
  text[Size - 1] = '\0';
}

void end_texts(KeeperRequest& request) {
  end_text(request.name);
  end_text(request.setup.start_file);
  end_text(request.setup.stop_file);
  end_text(request.setup.version);
  end_text(request.setup.output);
  end_text(request.setup.user);
  end_text(request.setup.group);
}

}  // namespace

// While it waits for a reply, only its own end counts.
short Managers::Manager::events() const {
  if (records > 0) return POLLOUT;
  return waits_for_end || stopping != nullptr ? 0 : POLLIN;
}

void Managers::list(std::span<pollfd, kMost> files) const {
  for (size_t at = 0; at < kMost; ++at) {
    files[at] = {.fd = managers_[at].socket.get(), .events = managers_[at].events(), .revents = 0};
  }
}

void Managers::handle(std::span<const pollfd, kMost> files) {
  for (size_t at = 0; at < kMost; ++at) {
    Manager& manager = managers_[at];
    const short events = files[at].revents;
    if (events == 0 || files[at].fd != manager.socket.get()) continue;
    if ((events & POLLOUT) != 0) {
      send_records(manager);
    } else if ((events & POLLIN) != 0) {
      receive(manager);
    } else {
      manager = Manager();
    }
  }
}

Managers::Manager& Managers::place() {
  return *std::min_element(
      managers_.begin(), managers_.end(), [](const Manager& one, const Manager& other) {
        return (one.socket.valid() ? one.number : 0) < (other.socket.valid() ? other.number : 0);
      });
}

void Managers::accept(int listening) {
  Fd client(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!client.valid()) return;
  ++count_;
  if (!is_from_own_user(client.get())) return;
  Manager& manager = place();
  manager = Manager();
  manager.socket = std::move(client);
  manager.number = count_;
}

bool Managers::all_have_left() const {
  return count_ > 0 && std::none_of(managers_.begin(), managers_.end(),
                                    [](const Manager& one) { return one.socket.valid(); });
}

void Managers::receive(Manager& manager) {
  KeeperRequest request = {};
  Streams streams;
  const ssize_t count = receive_request(manager.socket.get(), request, streams);
  constexpr auto kHead = static_cast<ssize_t>(offsetof(KeeperRequest, name));
  if (count < kHead) {
    manager = Manager();
  } else if (request.ask != Ask::kEnd && (request.protocol != kKeeperProtocol ||
                                          count != static_cast<ssize_t>(sizeof request))) {
    reply(manager, EPROTO);
  } else {
    end_texts(request);
    serve(manager, request, streams);
  }
}

void Managers::serve(Manager& manager, KeeperRequest& request, const Streams& streams) {
  switch (request.ask) {
    case Ask::kApplications:
      manager.record = apps_.all().first();
      manager.records = apps_.started_count();
      return reply(manager, 0);
    case Ask::kStart:
      return reply(manager,
                   is_ending_ ? ESHUTDOWN : apps_.start(request.name, request.setup, streams));
    case Ask::kStop:
      manager.stopping = apps_.stop(request.name, streams);
      if (manager.stopping == nullptr) reply(manager, 0);
      return;
    case Ask::kWatch:
      manager.watches = true;
      return reply(manager, 0);
    case Ask::kEnd:
      manager.waits_for_end = true;
      begin_end();
      return;
  }
  reply(manager, EINVAL);
}

void Managers::reply(Manager& manager, int code) {
  const KeeperReply reply = {.code = code, .count = manager.records};
  if (!send_packet(manager.socket.get(), &reply, sizeof reply)) manager = Manager();
}

// As many as it takes now.
void Managers::send_records(Manager& manager) {
  for (; manager.records > 0 && manager.record != nullptr; manager.record = manager.record->next) {
    if (!manager.record->was_started()) continue;
    const KeptApp facts = manager.record->facts();
    if (!send_packet(manager.socket.get(), &facts, sizeof facts)) {
      if (errno != EAGAIN) manager = Manager();
      return;
    }
    --manager.records;
  }
}

void Managers::answer() {
  const bool has_changed = apps_.take_change();
  for (Manager& manager : managers_) {
    if (manager.stopping != nullptr && !manager.stopping->is_live()) {
      reply(manager, std::exchange(manager.stopping, nullptr)->run.stop.failure().number);
    }
    // One that has not taken what came before will see this change with it.
    if (manager.watches && has_changed) (void)send_packet(manager.socket.get(), "", 1);
  }
}

void Managers::answer_end() {
  for (Manager& manager : managers_) {
    if (manager.waits_for_end) reply(manager, 0);
  }
}

}  // namespace tarviod
