// Unix-domain stream sockets without the library: the peer that a test plays itself.
#ifndef TARVIO_TESTS_SUPPORT_COM_SOCKETS_H
#define TARVIO_TESTS_SUPPORT_COM_SOCKETS_H

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>

namespace tarvio_test {

// Owns a socket. What cannot be done fails the test.
class Socket {
 public:
  explicit Socket(int fd = -1) : fd_(fd) {}
  ~Socket() { close(); }
  Socket(Socket&& other) noexcept : fd_(other.release()) {}
  Socket& operator=(Socket&& other) noexcept;

  int fd() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void close();

  void send(std::string_view bytes) const;
  void end_sending() const;
  // All bytes up to the end of data.
  std::string read_to_end() const;

 private:
  int fd_;
};

Socket new_socket();
Socket listen_on(const std::string& path, int backlog = 5);
// Waits for a connection.
Socket accept_on(const Socket& listener);
Socket connect_to(const std::string& path);
// False, at once, when the backlog is full.
bool try_to_connect(const Socket& socket, const std::string& path);
std::pair<Socket, Socket> socket_pair();

// Sends all bytes, ends the sending, and reads the answer to its end.
std::string ask(const std::string& path, std::string_view request);

// Number of open descriptors; 0 means this process.
long count_descriptors(pid_t process = 0);

}  // namespace tarvio_test

#endif
