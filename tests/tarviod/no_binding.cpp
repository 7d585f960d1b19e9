// Loaded into tarviod: no binding accepts an application whose name begins with an "x".
#include <dlfcn.h>
#include <signal.h>

#include "tarvio/app.h"

// Applications have it loaded as well, but not the library.
#pragma weak linux_app_binding

namespace {

int accepts(tq_app_info* app) { return app->package->name[0] == 'x' ? 0 : 1; }

}  // namespace

// The set-up of the Linux binding calls it, before the binding is asked.
extern "C" sighandler_t signal(int number, sighandler_t handler) noexcept {
  using Function = sighandler_t (*)(int, sighandler_t);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "signal"));
  if (&linux_app_binding != nullptr && linux_app_binding != nullptr)
    linux_app_binding->is_mine = accepts;
  return real(number, handler);
}
