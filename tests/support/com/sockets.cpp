#include "support/com/sockets.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>

namespace tarvio_test {
namespace {

// No peer of these tests is silent for that long; without an end a defect would hang the run.
constexpr int kPatienceMs = 60 * 1000;

sockaddr_un address_of(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) ADD_FAILURE() << path << " is too long";
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

void report(const char* what) { ADD_FAILURE() << what << ": " << std::strerror(errno); }

}  // namespace

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    close();
    fd_ = other.release();
  }
  return *this;
}

void Socket::close() {
  if (fd_ >= 0) ::close(release());
}

void Socket::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) return report("send");
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
}

void Socket::end_sending() const {
  if (::shutdown(fd_, SHUT_WR) != 0) report("shutdown");
}

std::string Socket::read_to_end() const {
  std::string bytes;
  std::array<char, 65536> buffer;
  while (true) {
    pollfd waited = {.fd = fd_, .events = POLLIN, .revents = 0};
    if (::poll(&waited, 1, kPatienceMs) < 1) {
      report("no end of data");
      return bytes;
    }
    const ssize_t count = ::recv(fd_, buffer.data(), buffer.size(), 0);
    if (count < 0 && errno != ECONNRESET) report("recv");
    if (count < 1) return bytes;
    bytes.append(buffer.data(), static_cast<size_t>(count));
  }
}

Socket new_socket() {
  Socket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.fd() < 0) report("socket");
  return socket;
}

Socket listen_on(const std::string& path, int backlog) {
  Socket socket = new_socket();
  const sockaddr_un address = address_of(path);
  ::unlink(path.c_str());
  if (::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(socket.fd(), backlog) != 0) {
    report("listen");
  }
  return socket;
}

Socket accept_on(const Socket& listener) {
  Socket client(::accept4(listener.fd(), nullptr, nullptr, SOCK_CLOEXEC));
  if (client.fd() < 0) report("accept");
  return client;
}

Socket connect_to(const std::string& path) {
  Socket socket = new_socket();
  const sockaddr_un address = address_of(path);
  if (::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    report("connect");
  return socket;
}

bool try_to_connect(const Socket& socket, const std::string& path) {
  const sockaddr_un address = address_of(path);
  const int flags = ::fcntl(socket.fd(), F_GETFL);
  ::fcntl(socket.fd(), F_SETFL, flags | O_NONBLOCK);
  const int result =
      ::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  ::fcntl(socket.fd(), F_SETFL, flags);
  if (result != 0 && errno != EAGAIN) report("connect");
  return result == 0;
}

std::pair<Socket, Socket> socket_pair() {
  std::array<int, 2> ends = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) report("socketpair");
  return {Socket(ends[0]), Socket(ends[1])};
}

std::string ask(const std::string& path, std::string_view request) {
  const Socket socket = connect_to(path);
  socket.send(request);
  socket.end_sending();
  return socket.read_to_end();
}

long count_descriptors(pid_t process) {
  const std::string owner = process == 0 ? "self" : std::to_string(process);
  const auto entries = std::filesystem::directory_iterator("/proc/" + owner + "/fd");
  // The directory is open itself while this process looks at its own.
  return std::distance(entries, {}) - (process == 0 ? 1 : 0);
}

}  // namespace tarvio_test
