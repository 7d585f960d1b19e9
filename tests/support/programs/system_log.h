// The test as the system log daemon.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_SYSTEM_LOG_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_SYSTEM_LOG_H

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include "support/com/sockets.h"

namespace tarvio_test {

// What programs pass to syslog.
class SystemLog {
 public:
  SystemLog() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    EXPECT_EQ(::bind(socket_.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~SystemLog() { ::unlink("/dev/log"); }
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;

  std::string text() const {
    std::string text;
    char message[2048];
    for (ssize_t count; (count = ::recv(socket_.fd(), message, sizeof message, 0)) > 0;)
      text.append(message, static_cast<size_t>(count));
    return text;
  }

 private:
  Socket socket_;
};

}  // namespace tarvio_test

#endif
