// What has become of the applications meanwhile, and what follows from it.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <utility>

#include "app_marks.h"
#include "app_runner.h"
#include "applications.h"
#include "settings/app_settings.h"
#include "tarvio/status_manager.h"

namespace tarviod {

namespace {

using runtime::AppState;
using tarvio::Deadline;

constexpr int kNotesMs = 10'000;

bool restarts_after(const char* application, const runtime::AppExit& exit) {
  AppSettings settings;
  if (!read_app_settings(application, settings)) return false;
  return settings.restart == RestartPolicy::kAlways ||
         (settings.restart == RestartPolicy::kOnFailure && is_failure(exit));
}

AppState state_of(KeptState state) {
  switch (state) {
    case KeptState::kRunning:
      return AppState::kRunning;
    case KeptState::kStopping:
      return AppState::kStopping;
    case KeptState::kStopped:
      return AppState::kStopped;
    case KeptState::kEnded:
      break;
  }
  return AppState::kEnded;
}

}  // namespace

void AppRunner::follow() {
  if (has_ended_) return;
  report_failures();
  while (true) {
    const bool is_heard = hear_keeper();
    if (!is_heard && !replace_keeper()) return;
    if (is_heard && !start_due_ones()) return;
  }
}

// The library has set a status that does not say why.
void AppRunner::report_failures() {
  for (AppRuns& runs : runs_.all()) {
    const int code = std::exchange(runs.failure, 0);
    if (code == 0 || find_application(runs.name) == nullptr) continue;
    char detail[256];
    (void)snprintf(detail, sizeof detail, "cannot be %s: %s", runs.is_start ? "started" : "stopped",
                   runtime::describe_error(code));
    set_status(runs.name, TQ_STATE_ERROR, detail);
  }
}

bool AppRunner::hear_keeper() {
  return changes_.valid() && changes_.take_changes() && take_notes();
}

// False when the keeper is gone.
bool AppRunner::take_notes() {
  const Deadline until = Deadline::after(kNotesMs);
  const KeeperRequest request = request_for(Ask::kApplications);
  KeeperReply reply;
  if (!requests_.valid() || !requests_.ask(request, reply, until)) return false;
  for (AppRuns& runs : runs_.all()) runs.is_kept = false;
  for (int i = 0; i < reply.count; ++i) {
    KeptApp kept = {};
    if (!requests_.next(kept, until)) return false;
    take_note(kept);
  }
  return true;
}

void AppRunner::take_note(const KeptApp& kept) {
  AppRuns* const runs = runs_.find_or_add(kept.name);
  if (runs == nullptr) return;
  const bool is_new = kept.starts > runs->starts;
  const runtime::AppExit exit = exit_of(kept);
  runs->is_kept = true;
  runs->process = kept.process;
  runs->since = kept.since;
  runs->starts = kept.starts;
  runs->stop_timeout_ms = kept.stop_timeout_ms;
  if (exit.kind != runtime::ExitKind::kNone) runs->exit = exit;  // else it is that of the last run
  (void)snprintf(runs->version, sizeof runs->version, "%s", kept.version);
  tq_app_info* const app = find_application(kept.name);
  if (app == nullptr) {
    runs->state = state_of(kept.state);
    return;
  }
  // A manager that was killed has started it and could not say so.
  if (is_new && (app->stopped != 0 || runs->restart_due.is_set())) {
    const bool again = std::exchange(runs->restart_due, Deadline::never()).is_set();
    (void)mark_started(*app, kept.process.pid);
    set_status(runs->name, TQ_STATE_NORMAL, again ? kStartedAgain : "started app");
  }
  settle(*app, *runs, kept.state);
}

void AppRunner::settle(tq_app_info& app, AppRuns& runs, KeptState state) {
  switch (state) {
    case KeptState::kRunning:
    case KeptState::kStopping:
      runs.state = state_of(state);
      (void)mark_started(app, runs.process.pid);
      break;
    case KeptState::kStopped:  // asked for by the manager before this one
      if (app.stopped != 0) break;
      mark_stopped(app);
      runs.state = AppState::kStopped;
      (void)tq_remove_application_status(runs.name);
      break;
    case KeptState::kEnded:
      if (app.stopped == 0 && !runs.restart_due.is_set()) settle_end(app, runs);
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

// Whether there were any.
bool AppRunner::start_due_ones() {
  bool were_any = false;
  for (AppRuns& runs : runs_.all()) {
    if (!runs.restart_due.passed()) continue;
    tq_app_info* const app = find_application(runs.name);
    if (app == nullptr) {
      runs.restart_due = Deadline::never();
    } else {
      were_any = true;
      if (!start_again(*app, runs, kStartedAgain)) break;
    }
  }
  return were_any;
}

// False when the keeper is gone; then it is still to be started.
bool AppRunner::start_again(tq_app_info& app, AppRuns& runs, const char* detail) {
  const int code = start_with_keeper(app, runs);
  if (code == kKeeperGone) return false;
  if (code == 0) {
    set_status(runs.name, TQ_STATE_NORMAL, detail);
  } else {
    runs.restart_due = Deadline::never();
    runs.exit = {.kind = runtime::ExitKind::kNotStarted, .number = code};
    settle_end(app, runs);
  }
  return true;
}

Deadline AppRunner::next_due() const {
  Deadline next = keeper_due_;
  for (const AppRuns& runs : runs_.all()) next = Deadline::sooner(next, runs.restart_due);
  return next;
}

}  // namespace tarviod
