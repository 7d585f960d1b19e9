#include "launch.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/deadline.h"
#include "base/pipe.h"
#include "run_program.h"

namespace tarviod {

using tarvio::copy_of;
using tarvio::Deadline;
using tarvio::Fd;
using tarvio::retried;

namespace {

constexpr int kExecMs = 1000;

}  // namespace

bool RunSettings::take(const AppSetup& setup) {
  stop_file = copy_of(setup.stop_file);
  version = copy_of(setup.version);
  output = copy_of(setup.output);
  user = copy_of(setup.user);
  group = copy_of(setup.group);
  nice = setup.nice;
  stop_timeout_ms = setup.stop_timeout_ms;
  starts = setup.starts;
  limits = setup.limits;
  return stop_file != nullptr && version != nullptr && output != nullptr && user != nullptr &&
         group != nullptr;
}

bool Launch::prepare(const Program& program) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return false;
  Fd own_end(ends[0]);
  const Fd child_end(ends[1]);
  const pid_t child = fork();
  if (child == 0) {
    own_end.reset();  // else its end would not show
    run_program(program, child_end.get());
  }
  runtime::ProcessFacts facts;
  if (child < 0 || !runtime::read_process(child, facts)) return false;
  id_ = facts.id;
  channel_ = std::move(own_end);
  return true;
}

void Launch::go() {
  if (retried([this] { return send(channel_.get(), "", 1, MSG_NOSIGNAL); }) != 1) {
    failure_ = {.kind = runtime::ExitKind::kNotRun, .number = errno};
    channel_.reset();  // which ends the process
    return;
  }
  if (tarvio::wait_for(channel_.get(), POLLIN, Deadline::after(kExecMs))) take_failure();
}

void Launch::end(int status) {
  status_ = status;
  take_failure();
  channel_.reset();
}

// An executed program has closed its end: then there is nothing to wait for.
void Launch::take_failure() {
  runtime::AppExit failure;
  const ssize_t count = recv(channel_.get(), &failure, sizeof failure, MSG_DONTWAIT);
  if (count == sizeof failure) failure_ = failure;
  if (count >= 0) channel_.reset();
}

}  // namespace tarviod
