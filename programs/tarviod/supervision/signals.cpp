#include "signals.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <utility>

#include "base/deadline.h"
#include "base/pipe.h"

namespace tarviod {

namespace {

using tarvio::Deadline;

constexpr int kRepetitionMs = 1000;

int signal_pipe = -1;

void pass_on(int number) {
  const tarvio::ErrnoKeeper keeper;
  const auto byte = static_cast<unsigned char>(number);
  // A full pipe holds enough signals already, and at the very end nobody reads them.
  while (write(signal_pipe, &byte, 1) < 0 && errno != EAGAIN && errno != EPIPE) continue;
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

tarvio::Fd catch_signals() {
  tarvio::Pipe pipe(O_NONBLOCK);
  if (!pipe.valid()) return tarvio::Fd();
  signal_pipe = pipe.write_end.release();
  const bool caught = handle(SIGTERM, pass_on) && handle(SIGINT, pass_on) &&
                      handle(SIGPIPE, do_nothing) &&
                      (is_ignored(SIGHUP) || handle(SIGHUP, pass_on));
  return caught ? std::move(pipe.read_end) : tarvio::Fd();
}

int read_signal(int signal_fd) {
  static int last = 0;
  static Deadline repetition = Deadline::never();
  unsigned char number = 0;
  (void)tarvio::read_some(signal_fd, {reinterpret_cast<char*>(&number), 1});
  if (number == last && number != SIGHUP && !repetition.passed()) return 0;
  last = number;
  repetition = Deadline::after(kRepetitionMs);
  return number;
}

}  // namespace tarviod
