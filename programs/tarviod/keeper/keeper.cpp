#include "keeper.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <span>

#include "app_output.h"
#include "base/deadline.h"
#include "base/pipe.h"
#include "kept_apps.h"
#include "managers.h"
#include "runtime/run_paths.h"

namespace tarviod {

namespace {

using tarvio::Deadline;
using tarvio::Fd;

constexpr int kDrainMs = 2000;

// What is left of the manager that has started it: signals for its group, its terminal, and how it
// has set signals.
bool part_from_manager() {
  (void)setsid();
  for (const int number : {SIGINT, SIGHUP, SIGPIPE}) (void)signal(number, SIG_IGN);
  for (const int number : {SIGCHLD, SIGTERM}) (void)signal(number, SIG_DFL);
  (void)prctl(PR_SET_NAME, kKeeperName);  // else it has that of the link to its program
  // What a session leaves behind becomes its child, so that it hears of its end.
  return prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
}

Fd open_signals() {
  sigset_t signals;
  (void)sigemptyset(&signals);
  (void)sigaddset(&signals, SIGCHLD);
  (void)sigaddset(&signals, SIGTERM);
  if (sigprocmask(SIG_SETMASK, &signals, nullptr) != 0) return Fd();
  return Fd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

class Keeper {
 public:
  // False, with errno, when that failed.
  bool open();
  // Until a manager asks for the end, or SIGTERM does while there is none, and all applications are
  // stopped.
  void serve();
  // So that a manager that connects from now on starts another keeper.
  void end();

 private:
  enum File : size_t { kListen, kSignals, kOutput, kManagers };

  void handle_signal(std::span<const pollfd> managers);
  void drain_output();

  Fd signals_;
  Output output_;
  KeptApps apps_{output_};
  Managers managers_{apps_};
};

bool Keeper::open() {
  signals_ = open_signals();
  return signals_.valid() && output_.open();
}

void Keeper::serve() {
  std::array<pollfd, kManagers + Managers::kMost> files;
  const auto managers = std::span(files).last<Managers::kMost>();
  files[kListen] = {.fd = kKeeperListenFd, .events = POLLIN, .revents = 0};
  files[kSignals] = {.fd = signals_.get(), .events = POLLIN, .revents = 0};
  files[kOutput] = {.fd = output_.fd(), .events = POLLIN, .revents = 0};
  while (!managers_.is_ending() || apps_.any_is_live()) {
    managers_.list(managers);
    const int wait_ms = Deadline::sooner(apps_.due(), output_.due()).remaining_ms();
    if (poll(files.data(), files.size(), wait_ms) < 0) continue;
    if (files[kSignals].revents != 0) handle_signal(managers);
    managers_.answer();  // before an application that was stopped is started again
    if (files[kOutput].revents != 0 || output_.due().passed()) output_.handle();
    managers_.handle(managers);
    if (files[kListen].revents != 0) managers_.accept(kKeeperListenFd);
    // One that has not started anything is of no use to another manager.
    if (managers_.all_have_left() && apps_.started_count() == 0) managers_.begin_end();
    if (managers_.is_ending()) apps_.stop_all();
    apps_.go_on();
    managers_.answer();
  }
}

// A manager decides what is stopped: the signal may have been meant for it, under the name that
// both have.
void Keeper::handle_signal(std::span<const pollfd> managers) {
  signalfd_siginfo signal = {};
  if (read(signals_.get(), &signal, sizeof signal) != sizeof signal) return;
  if (signal.ssi_signo == SIGCHLD) apps_.reap();
  const bool has_manager = std::any_of(managers.begin(), managers.end(), [](const pollfd& each) {
    return each.fd >= 0 && (each.revents & POLLHUP) == 0;
  });
  if (signal.ssi_signo == SIGTERM && !has_manager) managers_.begin_end();
}

// The last lines of what has ended.
void Keeper::drain_output() {
  const Deadline end = Deadline::after(kDrainMs);
  while (!end.passed()) {
    const bool is_queued = output_.due().is_set();
    if (!tarvio::wait_for(output_.fd(), POLLIN, is_queued ? output_.due() : Deadline::after(0)) &&
        !is_queued) {
      return;
    }
    output_.handle();
  }
}

void Keeper::end() {
  drain_output();
  (void)unlink(runtime::kLedgerPath);
  (void)unlink(runtime::kKeeperSocket);
  managers_.answer_end();
}

}  // namespace

int run_keeper() {
  if (!part_from_manager()) return EXIT_FAILURE;
  Keeper keeper;
  if (!keeper.open()) return EXIT_FAILURE;
  keeper.serve();
  keeper.end();
  return 0;
}

}  // namespace tarviod
