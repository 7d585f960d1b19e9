#ifndef TARVIO_SRC_COM_UNIT_H
#define TARVIO_SRC_COM_UNIT_H

namespace tarvio {

// The name under which the files of this folder log.
inline constexpr char kComManagerSource[] = "com/tq_com_manager";

}  // namespace tarvio

#endif
