#ifndef TARVIO_SRC_UTIL_TQ_TBX_UTIL_UNIT_H
#define TARVIO_SRC_UTIL_TQ_TBX_UTIL_UNIT_H

namespace tarvio {

// The name under which the files of this folder log.
inline constexpr char kTbxUtilSource[] = "util/tq_tbx_util";

}  // namespace tarvio

#endif
