#include "util/tq_repairs.h"

#include <errno.h>

namespace {

constinit unsigned repairs = 0;

}  // namespace

bool tarvio::is_repaired(unsigned flag) { return (repairs & flag) != 0; }

int tq_set_repairs(unsigned flags) {
  if ((flags & ~static_cast<unsigned>(TQ_REPAIR_ALL)) != 0) return EINVAL;
  repairs = flags;
  return 0;
}
