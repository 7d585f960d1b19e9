#include <errno.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/socket_path.h"
#include "tarvio/com.h"
#include "util/log_macros.h"

namespace {

constexpr int kBacklog = 5;
constexpr mode_t kEveryone = 0666;

struct Address {
  // The path may fill the whole field, so the terminating zero is not part of the address.
  explicit Address(const char* path)
      : length(static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path))) {
    record.sun_family = AF_UNIX;
    memcpy(record.sun_path, path, strlen(path));
  }

  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&record); }

  sockaddr_un record = {};
  socklen_t length;
};

}  // namespace

int tq_socket_create_unix_sock(void) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) TQ_WARNING("Can't create unix socket.");
  return fd;
}

int tq_socket_bind_unix_server_sock(int fd, const char* path) {
  if (!tarvio::is_socket_path(path)) return -1;
  (void)unlink(path);
  const Address address(path);
  const int bound = bind(fd, address.get(), address.length);
  if (bound != 0) {
    TQ_WARNING("Can't bind unix socket.");
  } else {
    TQ_DEBUG("Binded unix socket fd =%d ", bound);  // the result, not the socket (oddity 111)
  }
  // A failed bind does not end the call: it shows in the listen (oddity 112).
  (void)chmod(path, kEveryone);  // whatever the umask (oddity 113)
  TQ_DEBUG("chmod fd %d 0666 ", fd);
  const int result = listen(fd, kBacklog);
  if (result != 0) TQ_WARNING("Can't listen unix socket.");
  return result;
}

int tq_socket_accept_unix_sock(int fd) {
  const int client = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) {
    TQ_WARNING("Accept unix socket failed %d ", errno);
  } else {
    TQ_DEBUG("Accept unix socket fd =%d ", client);
  }
  return client;
}

int tq_socket_connect_unix_sock(int fd, const char* path) {
  int result = -1;
  if (tarvio::is_socket_path(path)) {
    const Address address(path);
    do {
      result = connect(fd, address.get(), address.length);
    } while (result != 0 && errno == EINTR);
  }
  if (result != 0) TQ_WARNING("Connect unix socket failed =%d ", errno);
  return result;
}

int tq_socket_close(int fd) { return close(fd); }
