#include "base/owners.h"
#include "tarvio/package.h"

static_assert(sizeof(tq_package_binding) == 9 * sizeof(void*));

tq_package_binding* tq_tbx_package_binding = nullptr;

namespace {

struct BindingState {
  const char* opkg_dir;  // as the host set it; no operation uses it (oddity 75)
};
constinit BindingState binding_state = {};

}  // namespace

// Each call makes a new record (oddity 76).
tq_package_binding* tq_get_tbx_package_binding(void) {
  tq_package_binding* binding = tarvio::allocate<tq_package_binding>().release();
  if (binding != nullptr) {
    *binding = {.setup = tq_setup_tbx_package_binding,
                .list = tq_tbx_list,
                .install = tq_tbx_install,
                .files = tq_tbx_files,
                .remove = tq_tbx_remove,
                .check_file_sign = tq_tbx_check_file_sign,
                .check_file_size = tq_tbx_check_file_size,
                .check_dependency = tq_tbx_check_dependency,
                .file_corruption = tq_tbx_file_corruption};
  }
  tq_tbx_package_binding = binding;
  return binding;
}

void tq_tbx_set_opkg_dir(const char* dir) { binding_state.opkg_dir = dir; }

// This one and those below fill slots for checks of another binding (oddity 75).
int tq_setup_tbx_package_binding(void) { return 0; }

int tq_tbx_check_file_sign(void) { return 0; }

int tq_tbx_check_dependency(void) { return 0; }

int tq_tbx_file_corruption(void) { return 0; }
