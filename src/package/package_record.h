// Making and owning package records, for the listing and the copies.
#ifndef TARVIO_SRC_PACKAGE_PACKAGE_RECORD_H
#define TARVIO_SRC_PACKAGE_PACKAGE_RECORD_H

#include <initializer_list>
#include <memory>

#include "base/owners.h"
#include "tarvio/package.h"

namespace tarvio {

// Frees a chain of records with all their strings.
struct FreePackages {
  void operator()(tq_package_info* head) const noexcept {
    (void)tq_delete_tq_package_info_recurse(&head);
  }
};
using Packages = std::unique_ptr<tq_package_info, FreePackages>;

// Whether tq_list creates the records that it lists. A host's own operation may list static ones.
bool lists_own_packages() noexcept;

// Categories that a listing or a copy keeps.
struct CategoryFilter {
  uint32_t type;
  uint32_t subtype;

  [[nodiscard]] bool keeps(int32_t category, int32_t subcategory) const noexcept {
    return (type == TQ_CATEGORY_ANY || type == static_cast<uint32_t>(category)) &&
           (subtype == TQ_SUBCATEGORY_ANY || subtype == static_cast<uint32_t>(subcategory));
  }
};

struct FieldText {
  char* tq_package_info::*field;
  const char* text;
};

// A record with copies of the texts, made in their order; a null text and every other field stay
// null. Null when memory runs out.
inline Packages make_package(int32_t type, int32_t subtype,
                             std::initializer_list<FieldText> texts) noexcept {
  Packages package(allocate<tq_package_info>().release());
  if (package == nullptr) return nullptr;
  *package = {};
  package->type = type;
  package->subtype = subtype;
  for (const auto& [field, text] : texts) {
    char*& copy = package.get()->*field;
    copy = copy_of(text).release();
    if (copy == nullptr && text != nullptr) return nullptr;
  }
  return package;
}

}  // namespace tarvio

#endif
