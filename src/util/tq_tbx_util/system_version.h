#ifndef TARVIO_SRC_UTIL_TQ_TBX_UTIL_SYSTEM_VERSION_H
#define TARVIO_SRC_UTIL_TQ_TBX_UTIL_SYSTEM_VERSION_H

#include "base/owners.h"

namespace tarvio {

// The version of the package that /etc/systemversion names, from opkg's control file of it; null
// when it cannot be read. Mounts the writable area on /mnt/root meanwhile when the device runs
// offline.
CString read_system_version();

}  // namespace tarvio

#endif
