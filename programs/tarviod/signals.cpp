#include "signals.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace tarviod {

namespace {

int signal_pipe = -1;

void pass_on(int /*signal*/) {
  const int saved = errno;
  (void)!write(signal_pipe, "", 1);  // a full pipe holds enough signals already
  errno = saved;
}

void do_nothing(int /*signal*/) {}

bool handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  return sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

int catch_signals() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
  signal_pipe = ends[1];
  const bool caught =
      handle(SIGTERM, pass_on) && handle(SIGINT, pass_on) && handle(SIGPIPE, do_nothing);
  return caught ? ends[0] : -1;
}

}  // namespace tarviod
