// The keeper, and the operations that ask it.
#include "app_runner.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <utility>

#include "app_marks.h"
#include "base/chain.h"
#include "boot_order.h"
#include "runtime/run_paths.h"
#include "settings/app_settings.h"
#include "settings/warn.h"
#include "supervision/watchdog.h"

namespace tarviod {

namespace {

using runtime::AppState;
using tarvio::Deadline;

constexpr int kReplyMs = 10'000;
constexpr int kMsPerSecond = 1000;
constexpr int kRetryMs = 1000;
constexpr int kMaxTries = 3;
// The keeper kills what a stop has left after twice the timeout.
constexpr int kStopRounds = 2;

// The operations of a binding get no other argument than the application.
AppRunner* runner = nullptr;

template <size_t Size>
bool copy_text(char (&target)[Size], const char* text) {
  const int length = snprintf(target, Size, "%s", text);
  return length >= 0 && static_cast<size_t>(length) < Size;
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

// A file that cannot be opened would keep every application from running.
bool can_open(const char* output) {
  return tarvio::Fd(::open(output, kOutputFlags, kOutputMode)).valid();
}

}  // namespace

bool AppRunner::open(const char* output) {
  if (output[0] == '/' && !can_open(output)) return refuse_file(output);
  output_ = output;
  runner = this;
  const KeeperFound found = connect();
  if (found != KeeperFound::kStarted) report(found);
  return found != KeeperFound::kNone;
}

void AppRunner::take_operations() {
  linux_app_binding->start = start_operation;
  linux_app_binding->stop = stop_operation;
}

KeeperFound AppRunner::connect() {
  KeeperRequest request = request_for(Ask::kWatch);
  KeeperReply reply;
  changes_.close();  // one that is to be replaced takes its manager for gone
  const KeeperFound found = requests_.open();
  const bool is_watched = found != KeeperFound::kNone && changes_.open() != KeeperFound::kNone &&
                          changes_.ask(request, reply, Deadline::after(kReplyMs));
  return is_watched && reply.code == 0 ? found : KeeperFound::kNone;
}

void AppRunner::report(KeeperFound found) {
  const int error = found == KeeperFound::kNone ? errno : 0;
  const bool is_new = std::exchange(keeper_error_, error) != error;
  if (error != 0 && is_new) warn(runtime::kKeeperSocket, strerror(error));
  if (found == KeeperFound::kStartedWithoutLedger) {
    warn(runtime::kLedgerPath,
         "is not whole: all processes with TARVIO_APPLICATION in their environment are ended");
  }
  if (found != KeeperFound::kStarted && found != KeeperFound::kReplaced) return;
  char why[96];
  (void)snprintf(why, sizeof why, "%s: its applications are ended%s",
                 found == KeeperFound::kStarted ? "has died" : "does not answer, so it is killed",
                 is_ending_ ? "" : " and started again");
  warn("keeper", why);
}

// 0 or an error code; kKeeperGone.
int AppRunner::ask(const KeeperRequest& request, int within_ms) {
  KeeperReply reply;
  if (!requests_.valid() || !requests_.ask(request, reply, Deadline::after(within_ms))) {
    return kKeeperGone;
  }
  if (reply.code >= 0) return reply.code;
  warn(runtime::kLedgerPath, strerror(-reply.code));
  return -reply.code;
}

// The next one may die as well meanwhile. When the connection alone has failed, the keeper is found
// again, with all that it runs.
bool AppRunner::replace_keeper() {
  if (has_ended_) return false;
  keeper_due_ = Deadline::never();
  for (int tries = 0; tries < kMaxTries; ++tries) {
    const KeeperFound found = connect();
    report(found);
    if (found != KeeperFound::kNone && take_notes() && (is_ending_ || start_lost_ones())) {
      return true;
    }
  }
  requests_.close();
  changes_.close();
  keeper_due_ = Deadline::after(kRetryMs);
  return false;
}

int AppRunner::start_operation(tq_app_info* app) {
  AppRuns* const runs = runner->runs_.find_or_add(app->package->name);
  if (runs == nullptr) return ENOMEM;
  begin_step();
  runs->restarts.reset();
  runs->is_start = true;
  runs->failure = runner->start(*app, *runs);
  return runs->failure;
}

int AppRunner::stop_operation(tq_app_info* app) {
  AppRuns* const runs = runner->runs_.find_or_add(app->package->name);
  if (runs == nullptr) return ENOMEM;
  begin_step(kStepSeconds + kStopRounds * runs->stop_timeout_ms / kMsPerSecond);
  runs->is_start = false;
  runs->failure = runner->stop(*app, *runs);
  return runs->failure;
}

int AppRunner::start(tq_app_info& app, AppRuns& runs) {
  const int code = start_with_keeper(app, runs);
  return code == kKeeperGone && replace_keeper() ? start_with_keeper(app, runs) : code;
}

int AppRunner::start_with_keeper(const tq_app_info& app, AppRuns& runs) {
  KeeperRequest request = request_for(Ask::kStart);
  AppSettings settings;
  if (!read_app_settings(app.package->name, settings)) return runtime::kBadSettings;
  const int mistake = describe_start(app, settings, output_, request);
  if (mistake != 0) return mistake;
  request.setup.starts = runs.starts + 1;
  const int code = ask(request, kReplyMs);
  // It runs already when the reply to a start before this one was lost.
  if (code != 0 && code != EALREADY) return code;
  runs.restart_due = Deadline::never();
  return 0;
}

int AppRunner::stop(tq_app_info& app, AppRuns& runs) {
  const bool runs_now = !runs.restart_due.is_set();
  runs.restart_due = Deadline::never();
  runs.restarts.reset();
  int code = runs_now ? stop_with_keeper(runs) : 0;
  if (code == kKeeperGone) {
    mark_stopped(app);  // so that it is not started again after the keeper
    code = replace_keeper() ? stop_with_keeper(runs) : kKeeperGone;
  }
  if (code != 0) {
    (void)mark_started(app, runs.process.pid);
    return code;
  }
  mark_stopped(app);
  runs.state = AppState::kStopped;
  return 0;
}

int AppRunner::stop_with_keeper(const AppRuns& runs) {
  KeeperRequest request = request_for(Ask::kStop);
  (void)copy_text(request.name, runs.name);
  const int code = ask(request, kReplyMs + kStopRounds * runs.stop_timeout_ms);
  if (code == 0 || code == kKeeperGone) return code;
  char why[128];
  (void)snprintf(why, sizeof why, "cannot run its stop file: %s: sent SIGTERM", strerror(code));
  warn(runs.name, why);
  return 0;
}

int AppRunner::start_at_boot() {
  int code = 0;
  BootOrder order;
  if (!order.read()) code = ENOMEM;
  order.each([&](tq_app_info& app, const AppSettings& settings) {
    const AppRuns* const runs = runs_.find(app.package->name);
    const bool was_started = runs != nullptr && runs->starts > 0;
    if (!settings.enabled || was_started) return;
    const int result = tq_start_app_exact(app.package->name);
    if (result != 0) code = result;
    follow();
  });
  return code;
}

int AppRunner::reason_not_run(const char* application) const {
  const AppRuns* const runs = runs_.find(application);
  if (runs == nullptr || runs->state == AppState::kRunning) return 0;
  // Since an earlier manager: that stop may have ended just now.
  if (runs->state == AppState::kStopping || runs->state == AppState::kStopped) return EBUSY;
  return runs->exit.is_not_run() ? runs->exit.number : 0;
}

void AppRunner::end_keeper() {
  KeeperRequest request = request_for(Ask::kEnd);
  has_ended_ = true;
  changes_.close();
  if (ask(request, kReplyMs) == kKeeperGone && requests_.open() != KeeperFound::kNone) {
    (void)ask(request, kReplyMs);
  }
  requests_.close();
}

}  // namespace tarviod
