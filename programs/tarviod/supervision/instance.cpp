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

#include <utility>

#include "tarvio/com.h"

namespace tarviod {

using tarvio::Fd;

namespace {

constexpr char kSocketPath[] = TQ_COM_SOCKET_PATH;
constexpr mode_t kDirectoryMode = 0755;
constexpr char kLockPath[] = TQ_COM_SOCKET_PATH ".lock";
constexpr mode_t kLockMode = 0600;  // whoever can open a file can lock it

// The mode does not depend on the caller's umask: every user may connect (oddity 113).
bool make_one(const char* path) {
  if (mkdir(path, kDirectoryMode) != 0) return errno == EEXIST;
  return chmod(path, kDirectoryMode) == 0;
}

// Creates the directories that lead to the socket. `path` is the last of them then, or the one that
// could not be created.
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

// Does not wait: a full backlog means that a manager is running, too.
bool manager_answers() {
  const Fd client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!client.valid()) return false;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  static_assert(sizeof kSocketPath <= sizeof address.sun_path);
  memcpy(address.sun_path, kSocketPath, sizeof kSocketPath);
  const auto* const peer = reinterpret_cast<const sockaddr*>(&address);
  return connect(client.get(), peer, sizeof address) == 0 || errno == EAGAIN;
}

// Names a file or directory that stands in the way, and the cause in errno.
void complain(const char* cannot, const char* path, const char* remedy = "") {
  (void)fprintf(stderr, "tarviod: cannot %s %s: %s%s\n", cannot, path, strerror(errno), remedy);
}

void complain_about_manager() {
  (void)fputs(manager_answers()
                  ? "tarviod: another manager already answers on " TQ_COM_SOCKET_PATH
                    ": stop it first\n"
                  : "tarviod: another manager runs but does not answer on " TQ_COM_SOCKET_PATH
                    ": stop it first, or wait while it starts or stops\n",
              stderr);
}

// Not valid when the directory cannot be used, or another manager holds the lock. The file stays:
// a manager that starts might have opened one that is removed, and two would hold a lock.
Fd lock_directory(const char* directory) {
  const Fd place(open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!place.valid() || access(directory, W_OK | X_OK) != 0) {
    complain("use", directory);
    return Fd();
  }
  Fd claim(open(kLockPath, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kLockMode));
  if (claim.valid() && flock(claim.get(), LOCK_EX | LOCK_NB) == 0) return claim;
  if (claim.valid() && errno == EWOULDBLOCK) {
    complain_about_manager();
  } else {
    complain("lock", kLockPath);
  }
  return Fd();
}

// A host of the library may answer on the path without the lock.
bool path_is_free() {
  if (manager_answers()) {
    complain_about_manager();
    return false;
  }
  if (unlink(kSocketPath) == 0 || errno == ENOENT) return true;
  complain("replace", kSocketPath);
  return false;
}

}  // namespace

Fd claim_instance() {
  char directory[sizeof kSocketPath];
  if (!make_directory(directory)) {
    complain("create", directory, ": create it, or run as root");
    return Fd();
  }
  Fd claim = lock_directory(directory);
  return claim.valid() && path_is_free() ? std::move(claim) : Fd();
}

}  // namespace tarviod
