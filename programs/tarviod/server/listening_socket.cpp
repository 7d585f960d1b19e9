#include "listening_socket.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/owners.h"

namespace tarviod {

namespace {

constexpr char kDirectory[] = TQ_COM_SOCKET_PATH ".new";
constexpr char kNewSocket[] = TQ_COM_SOCKET_PATH ".new/ipcom";
constexpr mode_t kClosedMode = 0700;
constexpr uid_t kOwnUser = static_cast<uid_t>(-1);

// Also what a manager that was killed has left there.
void remove_directory() {
  const tarvio::ErrnoKeeper keeper;
  (void)unlink(kNewSocket);
  (void)remove(kDirectory);
}

bool put_in_place(const SocketAccess& access) {
  return chown(kNewSocket, kOwnUser, access.group) == 0 && chmod(kNewSocket, access.mode) == 0 &&
         rename(kNewSocket, TQ_COM_SOCKET_PATH) == 0;
}

}  // namespace

int listen_for_clients(const SocketAccess& access, tq_com_handler_func handler) {
  remove_directory();
  if (mkdir(kDirectory, kClosedMode) != 0) return -1;
  tarvio::Fd socket(tq_setup_com_server(kNewSocket, handler));
  if (socket.valid() && !put_in_place(access)) socket.reset();
  remove_directory();
  return socket.release();
}

}  // namespace tarviod
