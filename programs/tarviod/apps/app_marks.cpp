#include "app_marks.h"

#include <stdlib.h>

#include "base/owners.h"
#include "tarvio/status_manager.h"

namespace tarviod {

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

void set_status(const char* application, int32_t state, const char* detail) {
  tq_status status = {};
  status.type = TQ_STATUS_TYPE_APPLICATION;
  status.state = state;
  status.name = const_cast<char*>(application);
  status.detail = const_cast<char*>(detail);
  (void)tq_set_status2(&status, 1);
}

}  // namespace tarviod
