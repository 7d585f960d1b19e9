#include <errno.h>
#include <string.h>

#include "base/chain.h"
#include "base/list_appender.h"
#include "base/owners.h"
#include "tarvio/app.h"
#include "tarvio/status_manager.h"
#include "util/log_macros.h"

static_assert(sizeof(tq_app_binding) == 4 * sizeof(void*));
static_assert(offsetof(tq_app_info, stopped) == 2 * sizeof(void*));
static_assert(offsetof(tq_app_info, pid) == 3 * sizeof(void*));

namespace {

// Filled by the set-up and kept for the life of the process (oddity 99).
struct AppManager {
  tq_list_t* tq_app_binding_list;  // of tq_app_binding
  tq_list_t* tq_app_list;          // of tq_app_info, in the order of the package list
};
constinit AppManager manager = {};

using Apps = tarvio::Elements<tq_app_info>;

int length_of(const char* text) { return static_cast<int>(strlen(text)); }

// By contract a part of the name is enough (oddity 90).
enum class Match { kPart, kExact };

bool matches(const char* package, const char* name, Match match) {
  return match == Match::kExact ? strcmp(package, name) == 0 : strstr(package, name) != nullptr;
}

tq_app_info* tq_find_app(const char* name, Match match) {
  if (manager.tq_app_list == nullptr) return nullptr;
  for (tq_app_info* app : Apps(manager.tq_app_list)) {
    const char* package = app->package->name;
    TQ_DEBUG("Checking application %s(%d) <-> %s(%d)", package, length_of(package), name,
             length_of(name));
    if (matches(package, name, match)) return app;
  }
  return nullptr;
}

tq_app_info* find_app_or_report(const char* name, Match match) {
  tq_app_info* app = name == nullptr ? nullptr : tq_find_app(name, match);
  if (app == nullptr) TQ_WARNING("No such application %s", name == nullptr ? "" : name);
  return app;
}

int start_app(const char* name, Match match) {
  TQ_INFO("Starting Application %s", name == nullptr ? "" : name);
  tq_app_info* app = find_app_or_report(name, match);
  if (app == nullptr) return EINVAL;
  if (app->stopped != 1) return 0;  // also when its process has ended (oddity 95)

  // A warning, before and after (oddity 94).
  TQ_WARNING("get application binding.");
  const int code = app->binding == nullptr ? EINVAL : app->binding->start(app);
  TQ_WARNING("get application binding.");
  const char* package = app->package->name;
  if (code != 0) {
    TQ_WARNING("Application start failed%s", package);
    (void)tq_set_application_status_error(package, "start app failed.");
    return code;
  }
  TQ_DEBUG("Application start success.%s", package);
  (void)tq_set_application_status_normal(package, "started app");
  app->stopped = 0;
  return 0;
}

int stop_app(const char* name, Match match) {
  TQ_INFO("Stopping Application %s", name == nullptr ? "" : name);
  tq_app_info* app = find_app_or_report(name, match);
  if (app == nullptr) return EINVAL;

  const char* package = app->package->name;
  if (app->stopped == 0) {  // else only the status is removed (oddity 96)
    const int code = app->binding == nullptr ? EINVAL : app->binding->stop(app);
    if (code != 0) {
      TQ_WARNING("Application stop failed%s", package);
      (void)tq_set_application_status_error(package, "Stop App Failed");
      return code;
    }
  }
  TQ_DEBUG("Application stop success %s", package);
  (void)tq_remove_application_status(package);
  app->stopped = 1;
  return 0;
}

// Tries each application until it succeeds, at once and without limit (oddity 91). The operation
// looks each name up in the same list again, so a name inside an earlier one is not reached
// (oddity 93).
int for_each_app(int (*operation)(const char* name)) {
  int last_failure = 0;
  if (manager.tq_app_list == nullptr) return last_failure;
  for (const tq_app_info* app : Apps(manager.tq_app_list)) {
    for (int code = operation(app->package->name); code != 0;
         code = operation(app->package->name)) {
      last_failure = code;  // stays the result after a success (oddity 92)
    }
  }
  return last_failure;
}

}  // namespace

// Returns 1, not 0, for success (oddity 88).
int tq_setup_app_manager(void) {
  manager.tq_app_binding_list = tq_list_create();
  manager.tq_app_list = tq_list_create();
  tq_app_binding* binding = tq_get_linux_app_binding();
  if (binding == nullptr || manager.tq_app_binding_list == nullptr ||
      manager.tq_app_list == nullptr) {
    return 0;
  }
  (void)binding->setup();
  (void)tarvio::ListAppender(*manager.tq_app_binding_list).append(binding);
  (void)tq_get_installed_application(manager.tq_app_list);
  return tq_check_all_app_binding(manager.tq_app_list, manager.tq_app_binding_list);
}

int tq_create_app_info(tq_package_info* package, tq_app_info** out) {
  if (out == nullptr) return EINVAL;
  *out = tarvio::allocate<tq_app_info>().release();
  if (*out == nullptr) return ENOMEM;
  **out = {.binding = nullptr, .package = package, .stopped = 1, .pid = nullptr};
  return 0;
}

int tq_get_installed_application(tq_list_t* apps) {
  if (apps == nullptr) return EINVAL;
  tq_package_info* packages = nullptr;
  // Not reported; and the packages are the binding's, so none is ever freed (oddity 98).
  if (tq_list(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, nullptr, &packages) != 0) return 0;
  tarvio::ListAppender list(*apps);
  for (tq_package_info& package : tarvio::Chain<tq_package_info>{packages}) {
    tq_app_info* app = nullptr;
    if (tq_create_app_info(&package, &app) != 0 ||
        !list.append(tarvio::Allocated<tq_app_info>(app))) {
      return ENOMEM;
    }
  }
  return 0;
}

const tq_list_t* tq_known_applications(void) { return manager.tq_app_list; }

// Spelled so (oddity 89).
int tq_check_app_biniding(tq_app_info* app, tq_list_t* bindings) {
  if (app == nullptr || bindings == nullptr) return 0;
  for (tq_app_binding* binding : tarvio::Elements<tq_app_binding>(bindings)) {
    const int taken = binding->is_mine(app);
    if (taken != 0) {
      app->binding = binding;
      return taken;
    }
  }
  return 0;
}

int tq_check_all_app_binding(tq_list_t* apps, tq_list_t* bindings) {
  int all_bound = 1;
  if (apps == nullptr) return all_bound;
  for (tq_app_info* app : Apps(apps)) {
    if (tq_check_app_biniding(app, bindings) == 0) all_bound = 0;
  }
  return all_bound;
}

int tq_start_app(const char* name) { return start_app(name, Match::kPart); }
int tq_start_app_exact(const char* name) { return start_app(name, Match::kExact); }

int tq_stop_app(const char* name) { return stop_app(name, Match::kPart); }
int tq_stop_app_exact(const char* name) { return stop_app(name, Match::kExact); }

int tq_start_all_app(void) {
  TQ_DEBUG("starting %d apps", tq_list_size(manager.tq_app_list));
  return for_each_app(tq_start_app);
}

int tq_stop_all_app(void) { return for_each_app(tq_stop_app); }
