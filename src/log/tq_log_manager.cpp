#include <errno.h>

#include "tarvio/error.h"
#include "tarvio/log_monitor.h"
#include "tarvio/status_manager.h"
#include "util/log_macros.h"

namespace {

constexpr size_t kMessageSize = 255;

struct LogManager {
  tq_log_binding* binding;
};
constinit LogManager log_manager = {};

bool is_state(int32_t state) {
  return state == TQ_STATE_NORMAL || state == TQ_STATE_THIRD || state == TQ_STATE_ERROR;
}

}  // namespace

int tq_setup_log_manager(void) {
  log_manager.binding = tq_get_syslog_binding();
  (void)log_manager.binding->setup();
  return 0;
}

int tq_start_monitor(void* argument) {
  if (log_manager.binding == nullptr) return EINVAL;
  return log_manager.binding->start_monitor(argument);
}

int tq_stop_monitor(void* argument) {
  if (log_manager.binding == nullptr) return EINVAL;
  return log_manager.binding->stop_monitor(argument);
}

int tq_set_log_hook(char* hook) {
  if (log_manager.binding == nullptr) return EINVAL;
  return log_manager.binding->set_log_hook(hook);
}

int tq_remove_log_hook(const char* hook) {
  if (log_manager.binding == nullptr) return EINVAL;
  return log_manager.binding->remove_log_hook(hook);
}

int tq_change_status_by_log(const char* name, int32_t state, const char* detail) {
  // The record is only read, so that it may borrow the caller's strings.
  const tq_status status = {.type = TQ_STATUS_TYPE_APPLICATION,
                            .id = 0,
                            .state = is_state(state) ? state : TQ_STATE_NORMAL,  // (oddity 105)
                            .detail = const_cast<char*>(detail),
                            .name = const_cast<char*>(name),
                            .next = nullptr};
  const int code = tq_set_status2(&status, 0);
  if (code != 0) {
    char message[kMessageSize] = "";
    TQ_ERROR("%s: %s ", "tq_change_status_by_log", tq_strerror_r(code, message, sizeof message));
  }
  return code;
}
