#include "app_runs.h"

#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include "base/owners.h"

namespace tarviod {

using runtime::AppExit;
using runtime::ExitKind;

AppRunsTable::~AppRunsTable() {
  while (first_ != nullptr) {
    const tarvio::Allocated<AppRuns> runs(first_);
    first_ = runs->next;
  }
}

AppRuns* AppRunsTable::find(const char* name) const {
  for (AppRuns& runs : all()) {
    if (strcmp(runs.name, name) == 0) return &runs;
  }
  return nullptr;
}

AppRuns* AppRunsTable::find_or_add(const char* name) {
  if (AppRuns* const found = find(name)) return found;
  AppRuns* const added = tarvio::allocate<AppRuns>().release();
  if (added == nullptr) return nullptr;
  *added = {};
  (void)snprintf(added->name, sizeof added->name, "%s", name);
  added->next = first_;
  first_ = added;
  return added;
}

AppExit exit_of(const KeptApp& kept) {
  if (kept.not_run.is_not_run()) return kept.not_run;
  if (kept.exit_status < 0) return {};
  if (WIFSIGNALED(kept.exit_status))
    return {.kind = ExitKind::kSignal, .number = WTERMSIG(kept.exit_status)};
  return {.kind = ExitKind::kStatus, .number = WEXITSTATUS(kept.exit_status)};
}

ExitText describe(const AppExit& exit) {
  ExitText text = {};
  switch (exit.kind) {
    case ExitKind::kNone:
      (void)snprintf(text.data(), text.size(), "ended");
      break;
    case ExitKind::kStatus:
      (void)snprintf(text.data(), text.size(), "ended with status %d", exit.number);
      break;
    case ExitKind::kSignal:
      (void)snprintf(text.data(), text.size(), "ended by signal %d (%s)", exit.number,
                     strsignal(exit.number));
      break;
    default:
      (void)snprintf(text.data(), text.size(), "%s: %s", exit.failed_step(), strerror(exit.number));
      break;
  }
  return text;
}

}  // namespace tarviod
