// What a manager or a keeper has left to the next one.
#include "app_marks.h"
#include "app_runner.h"
#include "applications.h"
#include "base/chain.h"
#include "base/owners.h"
#include "settings/warn.h"
#include "tarvio/status_manager.h"

namespace tarviod {

using runtime::AppState;
using tarvio::Deadline;

bool AppRunner::take_over(const runtime::StateFile* previous) {
  take_operations();
  if (previous != nullptr) restore(*previous);
  if (!hear_keeper() && !replace_keeper()) return false;
  stop_removed_ones();
  if (!(hear_keeper() && start_lost_ones()) && !replace_keeper()) return false;
  follow();
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
    if (runs == nullptr) return;
    tq_app_info* const app = find_application(runs->name);
    if (app == nullptr) {
      (void)tq_remove_application_status(runs->name);
      return;
    }
    runs->state = line.state;
    runs->since = line.since;
    runs->starts = line.starts;
    runs->exit = line.exit;
    if (line.state == AppState::kStopped || line.state == AppState::kEnded) return;
    (void)mark_started(*app, line.pid);
    if (line.state == AppState::kRestarting) runs->restart_due = Deadline::after(0);
  });
}

// The packages were removed while no manager ran. What the manager before this one has begun to
// stop is the keeper's, and nobody waits for it.
void AppRunner::stop_removed_ones() {
  for (const AppRuns& runs : runs_.all()) {
    if (runs.state != AppState::kRunning || find_application(runs.name) != nullptr) continue;
    if (stop_with_keeper(runs) == 0) warn(runs.name, "stopped: its package was removed");
  }
}

// An application that counts as started and that the keeper does not know. False when the keeper is
// gone.
bool AppRunner::start_lost_ones() {
  for (tq_app_info* app : tarvio::Elements<tq_app_info>(tq_known_applications())) {
    AppRuns* const runs = runs_.find_or_add(app->package->name);
    if (runs == nullptr || app->stopped != 0 || runs->restart_due.is_set() || runs->is_kept) {
      continue;
    }
    if (!start_again(*app, *runs, "started again after the keeper had died")) return false;
    runs->is_kept = true;
  }
  return true;
}

}  // namespace tarviod
