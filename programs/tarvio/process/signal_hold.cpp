#include "process/signal_hold.h"

#include <sys/signalfd.h>

#include "process/failure.h"

namespace client {

namespace {

bool is_ignored(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

tarvio::Fd descriptor_for(const sigset_t& signals) {
  tarvio::Fd fd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!fd.valid()) throw Failure::of_system("cannot wait for signals");
  return fd;
}

}  // namespace

SignalHold::SignalHold() {
  sigset_t ending;
  (void)sigemptyset(&ending);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    // A blocked signal is noted although it is ignored.
    if (!is_ignored(number)) (void)sigaddset(&ending, number);
  }
  sigset_t child;
  (void)sigemptyset(&child);
  (void)sigaddset(&child, SIGCHLD);
  (void)signal(SIGCHLD, SIG_DFL);  // ignored, as a parent may leave it, no end would be reported
  ending_ = descriptor_for(ending);
  child_ = descriptor_for(child);

  sigset_t all = ending;
  (void)sigaddset(&all, SIGCHLD);
  (void)sigprocmask(SIG_BLOCK, &all, &before_);
}

SignalHold::~SignalHold() { (void)sigprocmask(SIG_SETMASK, &before_, nullptr); }

void SignalHold::release_in_child() const { (void)sigprocmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace client
