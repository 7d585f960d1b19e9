#include <errno.h>
#include <string.h>

#include "package/package_record.h"
#include "util/log_macros.h"

namespace {

// Without the start and stop files (oddity 70).
tarvio::Packages copy_record(const tq_package_info& source) {
  return tarvio::make_package(source.type, source.subtype,
                              {{&tq_package_info::name, source.name},
                               {&tq_package_info::maintainer, source.maintainer},
                               {&tq_package_info::version, source.version}});
}

// Copies the records that match, of all or of the first, in order; null with ENOMEM when memory
// runs out.
int copy_matching(const tq_package_info* src, bool all, tq_package_info** out, auto matches) {
  *out = nullptr;
  tq_package_info* head = nullptr;
  tq_package_info** end = &head;
  for (; src != nullptr; src = all ? src->next : nullptr) {
    if (!matches(*src)) continue;
    *end = copy_record(*src).release();
    if (*end == nullptr) {
      (void)tq_delete_tq_package_info_recurse(&head);
      return ENOMEM;
    }
    end = &(*end)->next;
  }
  *out = head;
  return 0;
}

}  // namespace

int tq_copy_package_info(tq_package_info** out, const tq_package_info* src, int all) {
  if (out == nullptr) return EINVAL;
  return copy_matching(src, all != 0, out, [](const tq_package_info&) { return true; });
}

int tq_type_filter_package(uint32_t type, uint32_t subtype, const tq_package_info* src,
                           tq_package_info** out) {
  if (out == nullptr) return EINVAL;
  const tarvio::CategoryFilter filter = {.type = type, .subtype = subtype};
  (void)copy_matching(src, true, out, [filter](const tq_package_info& package) {
    return filter.keeps(package.type, package.subtype);
  });
  return 0;  // also when memory ran out (oddity 72)
}

int tq_name_filter_package(const char* needle, const tq_package_info* src, tq_package_info** out) {
  int result = EINVAL;
  if (out != nullptr) *out = nullptr;
  if (needle != nullptr && out != nullptr) {
    result = copy_matching(src, true, out, [needle](const tq_package_info& package) {
      return package.name != nullptr && strstr(package.name, needle) != nullptr;  // (oddity 73)
    });
  }
  TQ_DEBUG("dup done");  // on every path (oddity 74)
  return result;
}

int tq_free_package_info(tq_package_info* list) {
  if (list == nullptr) return 0;
  // The versions of the other records stay (oddity 71).
  free(list->version);
  while (list != nullptr) {
    tq_package_info* next = list->next;
    free(list->name);
    free(list->maintainer);
    free(list);
    list = next;
  }
  return 0;
}
