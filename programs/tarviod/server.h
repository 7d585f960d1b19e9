// The com server: one thread answers the clients one after the other, each when its request is
// complete, and runs the manager's own jobs between them.
#ifndef TARVIOD_SERVER_H
#define TARVIOD_SERVER_H

#include "settings/command_line.h"

namespace tarviod {

// What the thread can run; returns a result code.
using Job = int (*)();

struct Result {
  Job job = nullptr;
  int code = 0;
};

// Listens on TQ_COM_SOCKET_PATH and starts the thread. False, with errno, when that failed.
bool start_server(const SocketAccess& access);

// Has the thread run a job after the request that it serves.
void run_on_server(Job job);

// Becomes readable when a job is done.
int result_fd();
Result read_result();

// A job: stops the applications, those of clients that were waiting too, and removes the socket.
int stop_for_good();

}  // namespace tarviod

#endif
