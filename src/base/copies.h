// Copies that C code frees: null when memory runs out.
#ifndef TARVIO_SRC_BASE_COPIES_H
#define TARVIO_SRC_BASE_COPIES_H

#include <string.h>

#include <string_view>

#include "base/owners.h"

namespace tarvio {

inline CString copy_of(std::string_view text) noexcept {
  auto* const copy = static_cast<char*>(malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return CString(copy);
}

// Null for a null text as well.
inline CString copy_of(const char* text) noexcept {
  return text == nullptr ? nullptr : copy_of(std::string_view(text));
}

}  // namespace tarvio

#endif
