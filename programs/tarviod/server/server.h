// The com server: one thread answers the clients one after the other, each when its request is
// complete, and runs the manager's own jobs between them.
#ifndef TARVIOD_SERVER_H
#define TARVIOD_SERVER_H

#include "apps/app_runner.h"
#include "settings/command_line.h"

namespace tarviod {

// What the thread can run; returns a result code.
using Job = int (*)();

struct Result {
  Job job = nullptr;
  int code = 0;
};

// Listens on TQ_COM_SOCKET_PATH and starts the thread, which the runner belongs to from then on and
// to the end of the process. False, with errno, when that failed.
bool start_server(const SocketAccess& access, AppRunner& runner);

// Has the thread run a job after the request that it serves.
void run_on_server(Job job);

// Becomes readable when a job is done.
int result_fd();
Result read_result();

// Jobs.

// Starts the applications that are to run from the beginning.
int start_at_boot();
// Makes the applications that are installed now known.
int refresh();
// Nothing but what follows every job: publishes statuses that were changed elsewhere.
int look_around();
// Stops the applications, those of clients that were waiting too, removes the socket, and ends the
// keeper.
int stop_for_good();

}  // namespace tarviod

#endif
