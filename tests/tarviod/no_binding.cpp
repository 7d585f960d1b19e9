// Loaded into tarviod: no binding takes an application whose name begins with an "x".
#include <dlfcn.h>

#include "tarvio/app.h"

namespace {

int takes(tq_app_info* app) { return app->package->name[0] == 'x' ? 0 : 1; }

}  // namespace

int tq_setup_app_manager(void) {
  const auto real = reinterpret_cast<int (*)()>(dlsym(RTLD_NEXT, "tq_setup_app_manager"));
  (void)real();
  linux_app_binding->is_mine = takes;
  return 0;
}
