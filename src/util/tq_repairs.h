#ifndef TARVIO_SRC_UTIL_TQ_REPAIRS_H
#define TARVIO_SRC_UTIL_TQ_REPAIRS_H

#include "tarvio/repairs.h"

namespace tarvio {

// Whether the host has asked for one of the repairs.
bool is_repaired(unsigned flag);

}  // namespace tarvio

#endif
