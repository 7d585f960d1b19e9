#include <errno.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "base/chain.h"
#include "base/list_appender.h"
#include "base/owners.h"
#include "package/package_record.h"
#include "tarvio/app.h"
#include "tarvio/status_manager.h"
#include "util/log_macros.h"
#include "util/tq_repairs.h"

static_assert(sizeof(tq_app_binding) == 4 * sizeof(void*));
static_assert(offsetof(tq_app_info, stopped) == 2 * sizeof(void*));
static_assert(offsetof(tq_app_info, pid) == 3 * sizeof(void*));

namespace {

// Filled by the set-up; only a refresh changes the applications (oddity 99).
struct AppManager {
  tq_list_t* tq_app_binding_list;  // of tq_app_binding
  tq_list_t* tq_app_list;          // of tq_app_info, in the order of the package list
  bool owns_packages;              // false once a host's own operation has listed some
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

int stop(tq_app_info& app) {
  const char* package = app.package->name;
  if (app.stopped == 0) {  // else only the status is removed (oddity 96)
    const int code = app.binding == nullptr ? EINVAL : app.binding->stop(&app);
    if (code != 0) {
      TQ_WARNING("Application stop failed%s", package);
      (void)tq_set_application_status_error(package, "Stop App Failed");
      return code;
    }
  }
  TQ_DEBUG("Application stop success %s", package);
  (void)tq_remove_application_status(package);
  app.stopped = 1;
  return 0;
}

int stop_app(const char* name, Match match) {
  TQ_INFO("Stopping Application %s", name == nullptr ? "" : name);
  tq_app_info* app = find_app_or_report(name, match);
  return app == nullptr ? EINVAL : stop(*app);
}

constexpr int kMaxTries = 3;

// Whether it has been tried often enough for a host that wants an end.
bool is_given_up(const char* name, int failures, int code) {
  if (failures < kMaxTries || !tarvio::is_repaired(TQ_REPAIR_RETRIES)) return false;
  TQ_WARNING("Application %s failed %d times: going on without it, last code %d", name, failures,
             code);
  return true;
}

// Tries each application until it succeeds, at once and without limit (oddity 91). The operation
// looks each name up in the same list again, so a name inside an earlier one is not reached
// (oddity 93).
int for_each_app(int (*operation)(const char* name)) {
  int last_failure = 0;
  if (manager.tq_app_list == nullptr) return last_failure;
  for (const tq_app_info* app : Apps(manager.tq_app_list)) {
    const char* name = app->package->name;
    int failures = 0;
    for (int code = operation(name); code != 0; code = operation(name)) {
      last_failure = code;  // stays the result after a success (oddity 92)
      failures = std::min(failures + 1, kMaxTries);
      if (is_given_up(name, failures, code)) break;
    }
  }
  return last_failure;
}

int list_applications(const char* name, tq_package_info** packages) {
  const int code = tq_list(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, name, packages);
  if (!tarvio::lists_own_packages()) manager.owns_packages = false;
  return code;
}

// Appends a record for each package.
int append_apps(tq_list_t& apps, tq_package_info* packages) {
  tarvio::ListAppender list(apps);
  for (tq_package_info& package : tarvio::Chain<tq_package_info>{packages}) {
    tq_app_info* app = nullptr;
    if (tq_create_app_info(&package, &app) != 0 ||
        !list.append(tarvio::Allocated<tq_app_info>(app))) {
      return ENOMEM;
    }
  }
  return 0;
}

void free_packages(tq_package_info* packages) {
  if (manager.owns_packages) (void)tq_delete_tq_package_info_recurse(&packages);
}

void free_app(tq_app_info* app) {
  free_packages(app->package);
  free(app->pid);
  free(app);
}

// From now on each package goes with its application.
void unlink_packages(const tq_list_t& apps) {
  if (!manager.owns_packages) return;
  for (tq_app_info* app : Apps(&apps)) app->package->next = nullptr;
}

bool have_same_text(const char* one, const char* other) {
  return one == other || (one != nullptr && other != nullptr && strcmp(one, other) == 0);
}

bool are_same(const tq_package_info& one, const tq_package_info& other) {
  for (char* tq_package_info::*field : {&tq_package_info::version, &tq_package_info::maintainer,
                                        &tq_package_info::start_app, &tq_package_info::stop_app}) {
    if (!have_same_text(one.*field, other.*field)) return false;
  }
  return one.subtype == other.subtype;
}

// Takes the known application of this name off the list; null when there is none.
tq_app_info* take_known(const char* name) {
  int32_t index = 0;
  for (tq_app_info* app : Apps(manager.tq_app_list)) {
    if (strcmp(app->package->name, name) == 0) {
      (void)tq_list_remove(manager.tq_app_list, index);
      return app;
    }
    ++index;
  }
  return nullptr;
}

// Puts the applications that are known already in the place of their new records.
void merge_known(tq_list_t& listed, tq_refresh_result& result) {
  for (tq_list_node& node : tarvio::Chain<tq_list_node>{listed.head}) {
    auto* const app = static_cast<tq_app_info*>(node.element);
    tq_app_info* const known = take_known(app->package->name);
    if (known == nullptr) {
      (void)tq_check_app_biniding(app, manager.tq_app_binding_list);
      ++result.added;
      continue;
    }
    if (!are_same(*known->package, *app->package)) {
      std::swap(known->package, app->package);
      ++result.changed;
    }
    node.element = known;
    free_app(app);
  }
}

int look_up(const char* name, bool& is_installed) {
  tq_package_info* packages = nullptr;
  const int code = list_applications(name, &packages);
  for (const tq_package_info& package : tarvio::Chain<tq_package_info>{packages}) {
    if (strcmp(package.name, name) == 0) is_installed = true;
  }
  free_packages(packages);
  return code;
}

// A listing leaves out what it cannot read, as when memory runs out. No application is stopped for
// that: a second listing, of its name, must not have it either.
int stop_removed(tq_app_info& app, bool& is_gone) {
  bool is_installed = false;
  int code = look_up(app.package->name, is_installed);
  if (code != 0 || is_installed) return code;
  code = stop(app);
  is_gone = code == 0;
  return code;
}

// Stops and forgets the applications from an index on. Returns the last failure.
int forget_from(int32_t index, tq_refresh_result& result) {
  int last_failure = 0;
  for (void* at = nullptr; tq_list_get(manager.tq_app_list, index, &at) == 0;) {
    auto* const app = static_cast<tq_app_info*>(at);
    bool is_gone = false;
    const int code = stop_removed(*app, is_gone);
    if (code != 0) last_failure = code;
    if (!is_gone) {
      ++index;
      continue;
    }
    (void)tq_list_remove(manager.tq_app_list, index);
    free_app(app);
    ++result.removed;
  }
  return last_failure;
}

// The applications whose packages went come last, so that the others are known when these are
// stopped.
int refresh(tq_refresh_result& result) {
  if (manager.tq_app_list == nullptr) return EINVAL;
  tq_package_info* packages = nullptr;
  int code = list_applications(nullptr, &packages);
  tq_list_t listed = {};
  if (code == 0) code = append_apps(listed, packages);
  if (code != 0) {
    tarvio::free_nodes(listed.head, true);
    free_packages(packages);
    return code;
  }
  unlink_packages(*manager.tq_app_list);
  unlink_packages(listed);
  merge_known(listed, result);
  const int32_t first_gone = listed.count;
  tarvio::ListAppender(listed).append_all(*manager.tq_app_list);
  *manager.tq_app_list = listed;
  return forget_from(first_gone, result);
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
  manager.owns_packages = true;
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
  return list_applications(nullptr, &packages) == 0 ? append_apps(*apps, packages) : 0;
}

int tq_refresh_applications(tq_refresh_result* result) {
  tq_refresh_result changes = {};
  const int code = refresh(changes);
  TQ_INFO("refreshed applications: %d added, %d removed, %d changed", changes.added,
          changes.removed, changes.changed);
  if (result != nullptr) *result = changes;
  return code;
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
