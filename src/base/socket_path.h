#ifndef TARVIO_SRC_BASE_SOCKET_PATH_H
#define TARVIO_SRC_BASE_SOCKET_PATH_H

#include <errno.h>
#include <string.h>
#include <sys/un.h>

namespace tarvio {

// True when the path fits a socket address; else errno is EINVAL (null or empty) or ENAMETOOLONG.
inline bool is_socket_path(const char* path) {
  if (path == nullptr || *path == '\0') {
    errno = EINVAL;
    return false;
  }
  if (strlen(path) > sizeof(sockaddr_un::sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  return true;
}

}  // namespace tarvio

#endif
