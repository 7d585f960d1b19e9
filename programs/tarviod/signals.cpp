#include "signals.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace tarviod {

namespace {

int signal_pipe = -1;

void pass_on(int number) {
  const int saved = errno;
  const auto byte = static_cast<unsigned char>(number);
  (void)!write(signal_pipe, &byte, 1);  // a full pipe holds enough signals already
  errno = saved;
}

void do_nothing(int /*signal*/) {}

bool handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  return sigaction(signal, &action, nullptr) == 0;
}

bool is_ignored(int signal) {
  struct sigaction action = {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

int catch_signals() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
  signal_pipe = ends[1];
  const bool caught = handle(SIGTERM, pass_on) && handle(SIGINT, pass_on) &&
                      handle(SIGPIPE, do_nothing) &&
                      (is_ignored(SIGHUP) || handle(SIGHUP, pass_on));
  return caught ? ends[0] : -1;
}

int take_signal(int signal_fd) {
  unsigned char number = 0;
  (void)!read(signal_fd, &number, 1);
  return number;
}

}  // namespace tarviod
