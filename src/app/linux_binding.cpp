#include <errno.h>
#include <signal.h>

#include "base/owners.h"
#include "tarvio/app.h"
#include "tarvio/process.h"

tq_app_binding* linux_app_binding = nullptr;

namespace {

constexpr int kStopTries = 5;

}  // namespace

// Each call makes a new record (oddity 76).
tq_app_binding* tq_get_linux_app_binding(void) {
  tq_app_binding* binding = tarvio::allocate<tq_app_binding>().release();
  if (binding != nullptr) {
    *binding = {.setup = tq_setup_linux_app_binding,
                .is_mine = tq_is_linux_app,
                .start = tq_start_linux_app,
                .stop = tq_stop_linux_app};
  }
  linux_app_binding = binding;
  return binding;
}

int tq_setup_linux_app_binding(void) { return tq_ignore_wait_child_process_signal(); }

int tq_is_linux_app(tq_app_info* /*app*/) { return 1; }

int tq_start_linux_app(tq_app_info* app) {
  if (app == nullptr) return EINVAL;
  tarvio::Allocated<int32_t> pid = tarvio::allocate<int32_t>();
  if (pid == nullptr) return ENOMEM;
  const int code =
      tq_create_process(app->package->start_app, 0, pid.get(), nullptr, nullptr, nullptr);
  if (code != 0) return code;
  free(app->pid);
  app->pid = pid.release();
  app->stopped = 0;
  return 0;
}

int tq_stop_linux_app(tq_app_info* app) {
  if (app == nullptr) return EINVAL;
  if (app->pid != nullptr) {
    // The empty path of a missing stop file is passed too, and sends no signal (oddity 97).
    const int code = tq_terminate_process(app->package->stop_app, *app->pid, kStopTries);
    if (code != 0) return code;
  }
  free(app->pid);
  app->pid = nullptr;
  app->stopped = 1;
  return 0;
}

int tq_ignore_wait_child_process_signal(void) {
  // For the whole process (oddity 100).
  (void)signal(SIGCHLD, SIG_IGN);
  return 0;
}
