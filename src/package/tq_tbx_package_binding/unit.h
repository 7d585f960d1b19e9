#ifndef TARVIO_SRC_PACKAGE_TQ_TBX_PACKAGE_BINDING_UNIT_H
#define TARVIO_SRC_PACKAGE_TQ_TBX_PACKAGE_BINDING_UNIT_H

namespace tarvio {

// The name under which the files of this folder log.
inline constexpr char kPackageBindingSource[] = "package/tq_tbx_package_binding";

}  // namespace tarvio

#endif
