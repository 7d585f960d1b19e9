#include "instance.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "tarvio/com.h"

namespace tarviod {

namespace {

constexpr char kSocketPath[] = TQ_COM_SOCKET_PATH;
constexpr mode_t kDirectoryMode = 0755;

// Creates the directories that lead to the socket and leaves the last of them in `path`.
bool make_directory(char (&path)[sizeof kSocketPath]) {
  memcpy(path, kSocketPath, sizeof path);
  for (char* slash = strchr(path + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
    *slash = '\0';
    if (mkdir(path, kDirectoryMode) != 0 && errno != EEXIST) return false;
    if (strchr(slash + 1, '/') == nullptr) return true;
    *slash = '/';
  }
  return true;
}

// Does not wait: a manager whose backlog is full is one that is there.
bool manager_answers() {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return false;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  static_assert(sizeof kSocketPath <= sizeof address.sun_path);
  memcpy(address.sun_path, kSocketPath, sizeof kSocketPath);
  const int connected = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const bool answers = connected == 0 || errno == EAGAIN;
  (void)close(fd);
  return answers;
}

int refuse(const char* reason) {
  (void)fprintf(stderr, "tarviod: %s\n", reason);
  return -1;
}

}  // namespace

int claim_instance() {
  char directory[sizeof kSocketPath];
  if (!make_directory(directory)) {
    (void)fprintf(stderr, "tarviod: cannot create %s: %s: create it, or run as root\n", directory,
                  strerror(errno));
    return -1;
  }
  const int claim = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (claim < 0 || flock(claim, LOCK_EX | LOCK_NB) != 0) {
    if (claim >= 0 && errno == EWOULDBLOCK) {
      (void)close(claim);
      return refuse("another manager is starting up");
    }
    (void)fprintf(stderr, "tarviod: cannot lock %s: %s\n", directory, strerror(errno));
    if (claim >= 0) (void)close(claim);
    return -1;
  }
  if (manager_answers()) {
    (void)close(claim);
    return refuse("a manager answers on " TQ_COM_SOCKET_PATH " already: stop it first");
  }
  return claim;
}

}  // namespace tarviod
