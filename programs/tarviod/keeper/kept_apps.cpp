#include "kept_apps.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/pipe.h"
#include "ledger.h"

namespace tarviod {

namespace {

using runtime::ProcessId;
using tarvio::Deadline;

constexpr int kMaxKillDelayMs = 5000;
constexpr int kRepeatMs = 200;  // what has to be tried again
constexpr int kMaxDoubtMs = 1000;

// Without a table the next step has another try.
void send_to_all(const App& app, int signal) {
  ProcessTable table;
  if (table.read()) (void)table.send(app.name.get(), app.leaders(), signal);
}

template <size_t Size>
void copy_text(char (&to)[Size], const char* from) {
  (void)snprintf(to, Size, "%s", from);
}

bool any_of(const RecordList<App>& apps, auto condition) {
  for (const App& app : apps) {
    if (condition(app)) return true;
  }
  return false;
}

}  // namespace

KeptApp App::facts() const {
  KeptApp facts = {};
  copy_text(facts.name, name.get());
  copy_text(facts.version, run.settings.version.get());
  facts.state = run.state;
  facts.process = run.start.is_running() ? run.start.id() : run.oldest;
  facts.since = run.since;
  facts.starts = run.settings.starts;
  facts.stop_timeout_ms = run.settings.stop_timeout_ms;
  // A start file that leaves another process ends well before that one does.
  const int status = run.start.status() == 0 ? run.other_status : run.start.status();
  facts.exit_status = is_live() ? -1 : status;
  facts.not_run = run.start.failure();
  return facts;
}

// One that cannot be written is reported by the first start.
KeptApps::KeptApps(Output& output) : output_(output) { (void)record(); }

App* KeptApps::find(const char* name) const {
  for (App& app : apps_) {
    if (strcmp(app.name.get(), name) == 0) return &app;
  }
  return nullptr;
}

App* KeptApps::find_or_append(const char* name) {
  App* app = find(name);
  if (app != nullptr) return app;
  tarvio::CString copy = tarvio::copy_of(name);
  app = copy == nullptr ? nullptr : apps_.append();
  if (app != nullptr) app->name = std::move(copy);
  return app;
}

int KeptApps::start(const char* name, const AppSetup& setup, const Streams& streams) {
  // A name is a word in the environment and the rest of a line in the ledger.
  if (name[0] == '\0' || strchr(name, '\n') != nullptr) return EINVAL;
  App* const app = find_or_append(name);
  if (app == nullptr) return errno;
  if (app->is_live()) return app->run.state == KeptState::kStopping ? EBUSY : EALREADY;
  Run before = std::exchange(app->run, Run());
  Run& run = app->run;
  if (run.settings.take(setup)) {
    run.stop_copy.make(setup.stop_file);
    enter(*app, KeptState::kRunning);
    if (launch(*app, setup.start_file, -1, streams, run.start)) {
      if (!run.start.is_running()) settle();
      return 0;
    }
  }
  const int error = errno;
  run = std::move(before);
  return error;
}

// The program runs once it is recorded, and not before.
bool KeptApps::launch(const App& app, const char* file, int copy_fd, const Streams& streams,
                      Launch& into) {
  const RunSettings& settings = app.run.settings;
  Streams pipes;
  Streams read_ends;
  const bool is_logged = strcmp(settings.output.get(), "syslog") == 0;
  if (is_logged) {
    tarvio::Pipe output;
    tarvio::Pipe errors;
    if (!output.valid() || !errors.valid()) return false;
    pipes = {.output = std::move(output.write_end), .errors = std::move(errors.write_end)};
    read_ends = {.output = std::move(output.read_end), .errors = std::move(errors.read_end)};
  }
  Launch child;
  if (!child.prepare({.application = app.name.get(),
                      .file = file,
                      .copy_fd = copy_fd,
                      .settings = settings,
                      .streams = is_logged ? pipes : streams})) {
    return false;
  }
  const auto log = [&](tarvio::Fd& read_end, bool is_error) {
    return output_.add(std::move(read_end), app.name.get(), child.id().pid, is_error);
  };
  if (is_logged && (!log(read_ends.output, false) || !log(read_ends.errors, true))) return false;
  into = std::move(child);
  if (!record()) {
    into = {};
    errno = -errno;  // as in the reply
    return false;
  }
  into.go();
  return true;
}

bool KeptApps::record() const {
  LedgerWriter writer;
  for (const App& app : apps_) {
    if (!app.is_live()) continue;
    for (const ProcessId& leader : app.leaders()) {
      if (leader.pid != 0) writer.add(app.name.get(), leader);
    }
  }
  return writer.finish();
}

void KeptApps::enter(App& app, KeptState state) {
  app.run.state = state;
  app.run.since = time(nullptr);
  has_changed_ = true;
}

const App* KeptApps::stop(const char* name, const Streams& streams) {
  App* const app = find(name);
  if (app == nullptr || !app->is_live()) return nullptr;
  if (app->run.state == KeptState::kRunning) begin_stop(*app, streams);
  return app;
}

void KeptApps::stop_all() {
  const Streams nowhere;
  for (App& app : apps_) {
    if (app.run.state == KeptState::kRunning) begin_stop(app, nowhere);
  }
}

void KeptApps::begin_stop(App& app, const Streams& streams) {
  Run& run = app.run;
  const char* const file = run.settings.stop_file.get();
  enter(app, KeptState::kStopping);
  run.step = Run::Step::kAsk;
  run.next_step = Deadline::after(run.settings.stop_timeout_ms);
  if (file[0] != '\0' &&
      !launch(app, file, run.stop_copy.replacement_of(file), streams, run.stop)) {
    run.stop.fail(errno);
  }
  if (!run.stop.is_running()) take_step(app);  // a stop file that cannot run is none
}

// Once a step has not led to the end of an application.
void KeptApps::take_step(App& app) {
  Run& run = app.run;
  if (run.step == Run::Step::kAsk) {
    run.step = Run::Step::kTerminate;
    run.next_step = Deadline::after(std::min(run.settings.stop_timeout_ms, kMaxKillDelayMs));
    send_to_all(app, SIGTERM);
  } else {
    run.step = Run::Step::kKill;
    run.next_step = Deadline::after(kRepeatMs);
    send_to_all(app, SIGKILL);
  }
}

void KeptApps::reap() {
  siginfo_t ended = {};
  while (waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid != 0) {
    // As long as it is not waited for, it has its session.
    const pid_t pid = ended.si_pid;
    runtime::ProcessFacts facts;
    const bool is_known = runtime::read_process(pid, facts);
    int status = 0;
    (void)waitpid(pid, &status, 0);
    for (App& app : apps_) {
      Run& run = app.run;
      // A session that has ended may have left its number to another one.
      if (is_known && app.is_live() && facts.session == run.start.id().pid &&
          facts.session != pid) {
        run.other_status = status;
      }
      if (run.start.runs_as(pid)) {
        run.start.end(status);
        has_changed_ = true;
      }
      if (run.stop.runs_as(pid)) {
        run.stop.end(status);
        if (run.stop.failure().is_not_run() && run.step == Run::Step::kAsk) take_step(app);
      }
    }
  }
  settle();
}

// Finds the applications that have ended.
void KeptApps::settle() {
  const auto may_have_ended = [](const App& app) {
    return app.is_live() && !app.run.start.is_running() && !app.run.stop.is_running();
  };
  settle_due_ = Deadline::never();
  if (!any_of(apps_, may_have_ended)) return;
  ProcessTable table;
  const bool has_table = table.read();
  bool is_undecided = !has_table;
  bool has_ended = false;
  for (App& app : apps_) {
    if (!has_table || !may_have_ended(app)) continue;
    if (const ProcessId oldest = table.find_oldest(app.name.get(), app.leaders(), getpid());
        oldest.pid != 0) {
      has_changed_ = has_changed_ || oldest != app.run.oldest;
      app.run.oldest = oldest;
      continue;
    }
    // One that was not run has left nothing that could not be seen.
    if (table.is_in_doubt() && !doubt_end_.passed() && !app.run.start.failure().is_not_run()) {
      is_undecided = true;
      continue;
    }
    has_ended = true;
    enter(app, app.run.state == KeptState::kStopping ? KeptState::kStopped : KeptState::kEnded);
    app.run.stop_copy = {};
    app.run.next_step = Deadline::never();
  }
  look_again(is_undecided);
  // One that cannot be written names processes that are gone, which does no harm.
  if (has_ended) (void)record();
}

// A program without an environment would look as if it was just being executed forever.
void KeptApps::look_again(bool is_undecided) {
  if (!is_undecided) {
    doubt_end_ = Deadline::never();
    return;
  }
  if (!doubt_end_.is_set()) doubt_end_ = Deadline::after(kMaxDoubtMs);
  settle_due_ = Deadline::after(kRepeatMs);
}

Deadline KeptApps::due() const {
  Deadline due = settle_due_;
  for (const App& app : apps_) {
    if (app.is_live()) due = Deadline::sooner(due, app.run.next_step);
  }
  return due;
}

void KeptApps::go_on() {
  bool is_due = settle_due_.passed();
  for (App& app : apps_) {
    if (!app.is_live() || !app.run.next_step.passed()) continue;
    is_due = true;
    take_step(app);
  }
  if (is_due) settle();
}

int KeptApps::started_count() const {
  int count = 0;
  for (const App& app : apps_) count += app.was_started() ? 1 : 0;
  return count;
}

bool KeptApps::any_is_live() const {
  return any_of(apps_, [](const App& app) { return app.is_live(); });
}

}  // namespace tarviod
