#include "package/tq_tbx_package_binding/category.h"

#include <string.h>

#include <array>

#include "tarvio/package.h"

namespace tarvio {

namespace {

// The place of a name is its code.
constexpr std::array kSubcategories = {"Application_Native", "Application_Java",
                                       "Application_Browser", "Application_Jsp",
                                       "Application_Other"};
static_assert(kSubcategories.size() == TQ_SUBCATEGORY_OTHER + 1);

}  // namespace

int32_t category_code(const char* category) {
  if (strcmp(category, "Application") == 0) return TQ_CATEGORY_APPLICATION;
  if (strcmp(category, "Image") == 0) return TQ_CATEGORY_IMAGE;
  return TQ_CATEGORY_OTHER;
}

int32_t subcategory_code(const char* subcategory) {
  for (size_t code = 0; code < kSubcategories.size(); ++code) {
    if (strcmp(subcategory, kSubcategories[code]) == 0) return static_cast<int32_t>(code);
  }
  return TQ_SUBCATEGORY_OTHER;
}

}  // namespace tarvio
