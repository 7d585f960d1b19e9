// The category codes of listed packages; those of the type detection differ (oddity 63). Unknown
// categories are "other" (oddity 64).
#ifndef TARVIO_SRC_PACKAGE_TQ_TBX_PACKAGE_BINDING_CATEGORY_H
#define TARVIO_SRC_PACKAGE_TQ_TBX_PACKAGE_BINDING_CATEGORY_H

#include <stdint.h>

namespace tarvio {

int32_t category_code(const char* category);

int32_t subcategory_code(const char* subcategory);

}  // namespace tarvio

#endif
