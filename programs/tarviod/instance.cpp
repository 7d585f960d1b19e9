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

// The mode holds whatever the mask of the caller: everybody may connect.
bool make_one(const char* path) {
  if (mkdir(path, kDirectoryMode) != 0) return errno == EEXIST;
  return chmod(path, kDirectoryMode) == 0;
}

// Creates the directories that lead to the socket and leaves the last of them in `path`.
bool make_directory(char (&path)[sizeof kSocketPath]) {
  memcpy(path, kSocketPath, sizeof path);
  for (char* slash = strchr(path + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
    *slash = '\0';
    if (!make_one(path)) return false;
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

// Says what stands in the way: a file or directory, and the reason that errno has.
void refuse(const char* cannot, const char* path, const char* remedy = "") {
  (void)fprintf(stderr, "tarviod: cannot %s %s: %s%s\n", cannot, path, strerror(errno), remedy);
}

// Another manager that starts up has the lock; -1 then, and when the directory is of no use.
int lock_directory(const char* directory) {
  const int claim = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (claim < 0 || access(directory, W_OK | X_OK) != 0) {
    refuse("use", directory);
  } else if (flock(claim, LOCK_EX | LOCK_NB) == 0) {
    return claim;
  } else if (errno == EWOULDBLOCK) {
    (void)fputs("tarviod: another manager is starting up\n", stderr);
  } else {
    refuse("lock", directory);
  }
  if (claim >= 0) (void)close(claim);
  return -1;
}

bool path_is_free() {
  if (manager_answers()) {
    (void)fputs("tarviod: a manager answers on " TQ_COM_SOCKET_PATH " already: stop it first\n",
                stderr);
    return false;
  }
  if (unlink(kSocketPath) == 0 || errno == ENOENT) return true;
  refuse("replace", kSocketPath);
  return false;
}

}  // namespace

int claim_instance() {
  char directory[sizeof kSocketPath];
  if (!make_directory(directory)) {
    refuse("create", directory, ": create it, or run as root");
    return -1;
  }
  const int claim = lock_directory(directory);
  if (claim < 0 || path_is_free()) return claim;
  (void)close(claim);
  return -1;
}

}  // namespace tarviod
