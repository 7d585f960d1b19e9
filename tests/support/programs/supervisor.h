// What a supervisor hears from a program: the datagrams on a socket of the test's own.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_SUPERVISOR_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_SUPERVISOR_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <string>

#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"

namespace tarvio_test {

class Supervisor {
 public:
  // name  a path or, after an at sign, an abstract name; empty for a path of the test's own.
  explicit Supervisor(const std::string& name = "")
      : name_(name.empty() ? (directory_ / "notify").string() : name),
        socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    name_.copy(address.sun_path, sizeof address.sun_path - 1);
    if (name_[0] == '@') address.sun_path[0] = '\0';
    const size_t size = offsetof(sockaddr_un, sun_path) + name_.size();
    EXPECT_EQ(::bind(socket_.fd(), reinterpret_cast<const sockaddr*>(&address),
                     static_cast<socklen_t>(size)),
              0);
  }

  const std::string& name() const { return name_; }
  // A preparation of the program that is to report here.
  std::function<void()> environment() const {
    return [name = name_] { ::setenv("NOTIFY_SOCKET", name.c_str(), 1); };
  }

  // Waits for the next report.
  std::string next() const {
    pollfd file = {.fd = socket_.fd(), .events = POLLIN, .revents = 0};
    if (::poll(&file, 1, static_cast<int>(kPatience.count())) != 1) {
      ADD_FAILURE() << "nothing is reported";
      return "";
    }
    return next_if_any();
  }
  // Empty when there is none.
  std::string next_if_any() const {
    char text[512];
    const ssize_t size = ::recv(socket_.fd(), text, sizeof text, MSG_DONTWAIT);
    return size > 0 ? std::string(text, static_cast<size_t>(size)) : "";
  }

 private:
  const TempDir directory_;
  const std::string name_;
  const Socket socket_;
};

}  // namespace tarvio_test

#endif
