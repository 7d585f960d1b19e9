// The socket that the manager answers on.
#ifndef TARVIOD_LISTENING_SOCKET_H
#define TARVIOD_LISTENING_SOCKET_H

#include "settings/command_line.h"
#include "tarvio/com.h"

namespace tarviod {

// Listens on TQ_COM_SOCKET_PATH. Nobody can connect who may not, not even for a moment: the socket
// gets its group and its mode in a directory that is closed to others. Returns it, or a negative
// number with errno.
int listen_for_clients(const SocketAccess& access, tq_com_handler_func handler);

}  // namespace tarviod

#endif
