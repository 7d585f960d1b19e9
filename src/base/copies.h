// Copies that C code may free: null when memory runs out.
#ifndef TARVIO_SRC_BASE_COPIES_H
#define TARVIO_SRC_BASE_COPIES_H

#include <string_view>

#include "base/owners.h"

namespace tarvio {

CString copy_of(std::string_view text) noexcept;

// Null for a null text as well.
CString copy_of(const char* text) noexcept;

}  // namespace tarvio

#endif
