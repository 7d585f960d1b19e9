#include "base/owners.h"

#include <stdlib.h>
#include <string.h>

namespace tarvio {

CString copy_of(std::string_view text) noexcept {
  auto* const copy = static_cast<char*>(malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return CString(copy);
}

CString copy_of(const char* text) noexcept {
  return text == nullptr ? nullptr : copy_of(std::string_view(text));
}

}  // namespace tarvio
