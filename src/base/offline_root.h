#ifndef TARVIO_SRC_BASE_OFFLINE_ROOT_H
#define TARVIO_SRC_BASE_OFFLINE_ROOT_H

namespace tarvio {

// Where the installed system is mounted while the device runs from another root.
inline constexpr char kOfflineRoot[] = "/mnt/root";

}  // namespace tarvio

#endif
