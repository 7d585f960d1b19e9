// One request to the resident manager.
#ifndef TARVIO_SRC_LIB_MANAGER_REQUEST_H
#define TARVIO_SRC_LIB_MANAGER_REQUEST_H

#include "tarvio/com.h"

namespace tarvio {

// Sends a command with at most one argument (null for none) to the manager; see tq_request_com.
inline int request_manager(const char* command, const char* argument) {
  return tq_request_com(TQ_COM_SOCKET_PATH, command, argument == nullptr ? 0 : 1, &argument);
}

}  // namespace tarvio

#endif
