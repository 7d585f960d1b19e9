// The package manager that hosts call: it hands each operation to the active binding.
#include <errno.h>
#include <pthread.h>

#include "base/lock.h"
#include "tarvio/package.h"
#include "util/log_macros.h"

namespace {

struct FrontState {
  pthread_mutex_t mutex;             // two clients may set up at the same time
  const tq_package_binding* active;  // written once; null until then
};
constinit FrontState front = {PTHREAD_MUTEX_INITIALIZER, nullptr};

const tq_package_binding* active_binding() {
  const tarvio::Lock lock(front.mutex);
  return front.active;
}

// Calls an operation of the active binding.
template <typename... Parameters, typename... Arguments>
int forward(const char* function, int (*tq_package_binding::*operation)(Parameters...),
            Arguments... arguments) {
  const tq_package_binding* binding = active_binding();
  if (binding == nullptr) {
    TQ_WARNING("%s: package manager is not set up", function);
    return EINVAL;
  }
  return (binding->*operation)(arguments...);
}

}  // namespace

int tq_setup_package_manager(void) {
  const tarvio::Lock lock(front.mutex);
  if (front.active == nullptr) front.active = tq_get_tbx_package_binding();
  return 0;
}

int tq_list(uint32_t type, uint32_t subtype, const char* name, tq_package_info** out) {
  return forward("tq_list", &tq_package_binding::list, type, subtype, name, out);
}

int tq_install(const char* path, int force) {
  return forward("tq_install", &tq_package_binding::install, path, force);
}

int tq_remove(const char* name, int force) {
  return forward("tq_remove", &tq_package_binding::remove, name, force);
}

int tq_files(const char* name, tq_list_t* files) {
  return forward("tq_files", &tq_package_binding::files, name, files);
}

int tq_check_file_size(const char* path) {
  return forward("tq_check_file_size", &tq_package_binding::check_file_size, path);
}
