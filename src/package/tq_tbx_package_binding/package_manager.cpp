// The package manager that hosts call: it hands each operation to the active binding.
#include <errno.h>
#include <pthread.h>

#include "base/lock.h"
#include "package/package_record.h"
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

// Null, with a warning that names the function, before the set-up.
const tq_package_binding* binding_for(const char* function) {
  const tq_package_binding* binding = active_binding();
  if (binding == nullptr) TQ_WARNING("%s: package manager is not set up", function);
  return binding;
}

}  // namespace

bool tarvio::lists_own_packages() noexcept {
  const tq_package_binding* binding = active_binding();
  return binding != nullptr && binding->list == tq_tbx_list;
}

int tq_setup_package_manager(void) {
  const tarvio::Lock lock(front.mutex);
  if (front.active == nullptr) front.active = tq_get_tbx_package_binding();
  return 0;
}

int tq_list(uint32_t type, uint32_t subtype, const char* name, tq_package_info** out) {
  const tq_package_binding* binding = binding_for("tq_list");
  return binding == nullptr ? EINVAL : binding->list(type, subtype, name, out);
}

int tq_install(const char* path, int force) {
  const tq_package_binding* binding = binding_for("tq_install");
  return binding == nullptr ? EINVAL : binding->install(path, force);
}

int tq_remove(const char* name, int force) {
  const tq_package_binding* binding = binding_for("tq_remove");
  return binding == nullptr ? EINVAL : binding->remove(name, force);
}

int tq_files(const char* name, tq_list_t* files) {
  const tq_package_binding* binding = binding_for("tq_files");
  return binding == nullptr ? EINVAL : binding->files(name, files);
}

int tq_check_file_size(const char* path) {
  const tq_package_binding* binding = binding_for("tq_check_file_size");
  return binding == nullptr ? EINVAL : binding->check_file_size(path);
}
