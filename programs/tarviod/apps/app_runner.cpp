#include "app_runner.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <utility>

#include "applications.h"
#include "base/chain.h"
#include "base/owners.h"
#include "boot_order.h"
#include "runtime/run_paths.h"
#include "settings/app_settings.h"
#include "settings/warn.h"
#include "supervision/watchdog.h"
#include "tarvio/status_manager.h"

namespace tarviod {

namespace {

using runtime::AppState;
using tarvio::Deadline;

constexpr int kReplyMs = 10'000;
constexpr int kMsPerSecond = 1000;
constexpr int kGone = ECONNRESET;  // the keeper
// The keeper kills what a stop has left after twice the timeout.
constexpr int kStopRounds = 2;
constexpr char kKeeper[] = "keeper";

// The operations of a binding get no other argument than the application.
AppRunner* runner = nullptr;

using Apps = tarvio::Elements<tq_app_info>;

bool is_readable(int fd) {
  pollfd file = {.fd = fd, .events = POLLIN, .revents = 0};
  return poll(&file, 1, 0) > 0;
}

template <size_t Size>
bool copy_text(char (&target)[Size], const char* text) {
  const int length = snprintf(target, Size, "%s", text);
  return length >= 0 && static_cast<size_t>(length) < Size;
}

bool mark_started(tq_app_info& app, pid_t pid) {
  tarvio::Allocated<int32_t> cell = tarvio::allocate<int32_t>();
  if (cell == nullptr) return false;
  *cell = pid;
  free(app.pid);
  app.pid = cell.release();
  app.stopped = 0;
  return true;
}

void mark_stopped(tq_app_info& app) {
  free(app.pid);
  app.pid = nullptr;
  app.stopped = 1;
}

// 0 or why the application cannot be started so.
int describe_start(const tq_app_info& app, const AppSettings& settings, const char* output,
                   KeeperRequest& request) {
  AppSetup& setup = request.setup;
  const bool fits = copy_text(request.name, app.package->name) &&
                    copy_text(setup.start_file, app.package->start_app) &&
                    copy_text(setup.stop_file, app.package->stop_app) &&
                    copy_text(setup.version, app.package->version) &&
                    copy_text(setup.output, output) && copy_text(setup.user, settings.user) &&
                    copy_text(setup.group, settings.group);
  setup.nice = settings.nice;
  setup.stop_timeout_ms = settings.stop_timeout_s * kMsPerSecond;
  setup.limits = {.memory_bytes = settings.max_memory,
                  .open_files = settings.max_open_files,
                  .processes = settings.max_processes};
  return fits ? 0 : ENAMETOOLONG;
}

void set_status(const char* application, int32_t state, const char* detail) {
  tq_status status = {};
  status.type = TQ_STATUS_TYPE_APPLICATION;
  status.state = state;
  status.name = const_cast<char*>(application);
  status.detail = const_cast<char*>(detail);
  (void)tq_set_status2(&status, 1);
}

bool restarts_after(const char* application, const runtime::AppExit& exit) {
  AppSettings settings;
  if (!read_app_settings(application, settings)) return false;
  return settings.restart == RestartPolicy::kAlways ||
         (settings.restart == RestartPolicy::kOnFailure && is_failure(exit));
}

}  // namespace

bool AppRunner::open(const char* output) {
  output_ = output;
  runner = this;
  return connect() != KeeperFound::kNone;
}

KeeperFound AppRunner::connect() {
  KeeperRequest request = request_for(Ask::kWatch);
  KeeperReply reply;
  const KeeperFound found = requests_.open();
  if (found == KeeperFound::kStartedWithoutLedger) {
    warn(runtime::kLedgerPath, "is not whole: what the keeper before this one ran may still run");
  }
  if (found != KeeperFound::kNone && changes_.open() != KeeperFound::kNone &&
      changes_.ask(request, reply, Deadline::after(kReplyMs)) && reply.code == 0) {
    return found;
  }
  warn(kKeeper, strerror(errno));
  return KeeperFound::kNone;
}

// 0 or an error code; kGone when the keeper is gone.
int AppRunner::ask(const KeeperRequest& request, int within_ms) {
  KeeperReply reply;
  if (!requests_.valid() || !requests_.ask(request, reply, Deadline::after(within_ms)))
    return kGone;
  return reply.code;
}

int AppRunner::start_operation(tq_app_info* app) {
  AppRuns* const runs = runner->runs_.find_or_add(app->package->name);
  if (runs == nullptr) return ENOMEM;
  // A start of all tries an application until it succeeds, and would never end. `follow` says
  // afterwards that this one has failed.
  if (runs->failure != 0) return 0;
  begin_step();
  runs->restarts.reset();
  runs->is_start = true;
  runs->failure = runner->start(*app, *runs);
  return runs->failure;
}

int AppRunner::stop_operation(tq_app_info* app) {
  AppRuns* const runs = runner->runs_.find_or_add(app->package->name);
  if (runs == nullptr) return ENOMEM;
  if (runs->failure != 0) return 0;  // as above
  begin_step(kStepSeconds + kStopRounds * runs->stop_timeout_ms / kMsPerSecond);
  runs->is_start = false;
  runs->failure = runner->stop(*app, *runs);
  return runs->failure;
}

int AppRunner::start(tq_app_info& app, AppRuns& runs) {
  const int code = start_with_keeper(app, runs);
  return code == kGone && replace_keeper() ? start_with_keeper(app, runs) : code;
}

int AppRunner::start_with_keeper(tq_app_info& app, AppRuns& runs) {
  KeeperRequest request = request_for(Ask::kStart);
  AppSettings settings;
  if (!read_app_settings(app.package->name, settings)) return EINVAL;
  const int mistake = describe_start(app, settings, output_, request);
  if (mistake != 0) return mistake;
  request.setup.starts = runs.starts + 1;
  const int code = ask(request, kReplyMs);
  // It runs already when the reply to a start before this one was lost.
  if (code != 0 && code != EALREADY) return code;
  runs.restart_due = Deadline::never();
  return take_notes() ? 0 : kGone;
}

int AppRunner::stop(tq_app_info& app, AppRuns& runs) {
  const bool runs_now = !runs.restart_due.is_set();
  runs.restart_due = Deadline::never();
  runs.restarts.reset();
  int code = runs_now ? stop_with_keeper(runs) : 0;
  if (code == kGone) {
    mark_stopped(app);  // so that it is not started again after the keeper
    code = replace_keeper() ? stop_with_keeper(runs) : kGone;
  }
  if (code != 0) return code;
  mark_stopped(app);
  runs.state = AppState::kStopped;
  return 0;
}

int AppRunner::stop_with_keeper(const AppRuns& runs) {
  KeeperRequest request = request_for(Ask::kStop);
  (void)copy_text(request.name, runs.name);
  return ask(request, kReplyMs + kStopRounds * runs.stop_timeout_ms);
}

// Starts a keeper in the place of one that has died, and what that one ran. When it was the
// connection alone that failed, the keeper is found again, with all that it runs.
bool AppRunner::replace_keeper() {
  const KeeperFound found = connect();
  if (found != KeeperFound::kRunning) {
    warn(kKeeper, "has died: its applications are ended and started again");
  }
  if (found == KeeperFound::kNone || !take_notes()) return false;
  start_lost_ones();
  return true;
}

// An application that counts as started and that the keeper does not know.
void AppRunner::start_lost_ones() {
  for (tq_app_info* app : Apps(tq_known_applications())) {
    AppRuns* const runs = runs_.find_or_add(app->package->name);
    if (runs == nullptr || app->stopped != 0 || runs->restart_due.is_set() || runs->is_kept) {
      continue;
    }
    start_again(*app, *runs, "started again after the keeper had died");
  }
}

void AppRunner::start_again(tq_app_info& app, AppRuns& runs, const char* detail) {
  const int code = start_with_keeper(app, runs);
  if (code == 0) return set_status(runs.name, TQ_STATE_NORMAL, detail);
  runs.exit = {.kind = runtime::ExitKind::kNotRun, .number = code};
  settle_end(app, runs);
}

// False when the keeper is gone.
bool AppRunner::take_notes() {
  const Deadline until = Deadline::after(kReplyMs);
  const KeeperRequest request = request_for(Ask::kApplications);
  KeeperReply reply;
  if (!requests_.valid() || !requests_.ask(request, reply, until)) return false;
  for (AppRuns& runs : runs_.all()) runs.is_kept = false;
  for (int i = 0; i < reply.count; ++i) {
    KeptApp kept = {};
    if (!requests_.next(kept, until)) return false;
    settle(kept);
  }
  return true;
}

void AppRunner::settle(const KeptApp& kept) {
  AppRuns* const runs = runs_.find_or_add(kept.name);
  if (runs == nullptr) return;
  runs->is_kept = true;
  runs->process = kept.process;
  runs->since = kept.since;
  runs->starts = kept.starts;
  runs->stop_timeout_ms = kept.stop_timeout_ms;
  runs->exit = exit_of(kept);
  (void)copy_text(runs->version, kept.version);
  tq_app_info* const app = find_application(kept.name);
  if (app == nullptr) {
    runs->state = kept.state == KeptState::kRunning ? AppState::kRunning : AppState::kEnded;
    return;
  }
  switch (kept.state) {
    case KeptState::kRunning:
    case KeptState::kStopping:
      runs->state = kept.state == KeptState::kRunning ? AppState::kRunning : AppState::kStopping;
      mark_started(*app, kept.process.pid);
      break;
    case KeptState::kStopped:  // asked for by the manager before this one
      if (app->stopped != 0) break;
      mark_stopped(*app);
      runs->state = AppState::kStopped;
      (void)tq_remove_application_status(kept.name);
      break;
    case KeptState::kEnded:
      if (app->stopped == 0 && !runs->restart_due.is_set()) settle_end(*app, *runs);
      break;
  }
}

// The application is to be started again, or counts as stopped.
void AppRunner::settle_end(tq_app_info& app, AppRuns& runs) {
  const ExitText text = describe(runs.exit);
  const bool again = restarts_after(runs.name, runs.exit);
  const int pause_ms = again ? runs.restarts.next_pause_ms() : -1;
  char detail[256];
  if (pause_ms >= 0) {
    runs.restart_due = Deadline::after(pause_ms);
    runs.state = AppState::kRestarting;
    (void)snprintf(detail, sizeof detail, "%s, starting it again", text.data());
    return set_status(runs.name, TQ_STATE_THIRD, detail);
  }
  mark_stopped(app);
  runs.state = AppState::kEnded;
  (void)snprintf(detail, sizeof detail, again ? "%s, %d times within %d s" : "%s", text.data(),
                 Restarts::kMost + 1, Restarts::kWindowS);
  set_status(runs.name, is_failure(runs.exit) ? TQ_STATE_ERROR : TQ_STATE_NORMAL, detail);
}

// The library has set a status that does not say why, or that hides a failure which it tried again.
void AppRunner::report_failures() {
  for (AppRuns& runs : runs_.all()) {
    const int code = std::exchange(runs.failure, 0);
    tq_app_info* const app = find_application(runs.name);
    if (code == 0 || app == nullptr) continue;
    char detail[256];
    (void)snprintf(detail, sizeof detail, "cannot be %s: %s", runs.is_start ? "started" : "stopped",
                   strerror(code));
    set_status(runs.name, TQ_STATE_ERROR, detail);
    if (runs.is_start) mark_stopped(*app);
    if (!runs.is_start) (void)mark_started(*app, runs.process.pid);
  }
}

void AppRunner::follow() {
  report_failures();
  if (changes_.valid() && is_readable(changes_.fd()) &&
      !(changes_.take_changes() && take_notes()) && !replace_keeper()) {
    return;
  }
  for (AppRuns& runs : runs_.all()) {
    tq_app_info* const app = find_application(runs.name);
    if (app == nullptr || !runs.restart_due.passed()) continue;
    runs.restart_due = Deadline::never();
    start_again(*app, runs, "started again");
  }
}

int AppRunner::start_at_boot() {
  int code = 0;
  BootOrder order;
  if (!order.read()) code = ENOMEM;
  order.each([&](tq_app_info& app, const AppSettings& settings) {
    if (!settings.enabled) return;
    const int result = tq_start_app_exact(app.package->name);
    if (result != 0) code = result;
    follow();
  });
  return code;
}

Deadline AppRunner::next_restart() const {
  Deadline next = Deadline::never();
  for (const AppRuns& runs : runs_.all()) next = Deadline::sooner(next, runs.restart_due);
  return next;
}

bool AppRunner::take_over(const runtime::StateFile* previous) {
  linux_app_binding->start = start_operation;
  linux_app_binding->stop = stop_operation;
  if (previous != nullptr) restore(*previous);
  if (!take_notes()) {
    warn(kKeeper, strerror(errno));
    return false;
  }
  stop_unknown_ones();
  start_lost_ones();
  return true;
}

// What ran counts as started until the keeper says otherwise.
void AppRunner::restore(const runtime::StateFile& previous) {
  previous.each_status([](const runtime::StatusLine& line) {
    const tarvio::CString name = tarvio::copy_of(line.name);
    const tarvio::CString detail = tarvio::copy_of(line.detail);
    if (name != nullptr && detail != nullptr) set_status(name.get(), line.level, detail.get());
  });
  previous.each_app([&](const runtime::AppLine& line) {
    const tarvio::CString name = tarvio::copy_of(line.name);
    AppRuns* const runs = name == nullptr ? nullptr : runs_.find_or_add(name.get());
    tq_app_info* const app = runs == nullptr ? nullptr : find_application(runs->name);
    if (app == nullptr) return;
    runs->state = line.state;
    runs->since = line.since;
    runs->starts = line.starts;
    runs->exit = line.exit;
    if (line.state == AppState::kStopped || line.state == AppState::kEnded) return;
    (void)mark_started(*app, line.pid);
    if (line.state == AppState::kRestarting) runs->restart_due = Deadline::after(0);
  });
}

// Those whose package was removed while no manager ran.
void AppRunner::stop_unknown_ones() {
  for (const AppRuns& runs : runs_.all()) {
    if (runs.state != AppState::kRunning || find_application(runs.name) != nullptr) continue;
    if (stop_with_keeper(runs) == 0) warn(runs.name, "stopped: its package was removed");
  }
}

int AppRunner::reason_not_run(const char* application) const {
  const AppRuns* const runs = runs_.find(application);
  return runs != nullptr && runs->exit.kind == runtime::ExitKind::kNotRun ? runs->exit.number : 0;
}

void AppRunner::end_keeper() {
  KeeperRequest request = request_for(Ask::kEnd);
  changes_.close();
  if (ask(request, kReplyMs) == kGone && requests_.open() != KeeperFound::kNone) {
    (void)ask(request, kReplyMs);
  }
  requests_.close();
}

}  // namespace tarviod
