#include <errno.h>
#include <string.h>

#include "base/chain.h"
#include "base/owners.h"
#include "tarvio/package.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

namespace {

bool copy_string(char*& field, const char* value) {
  tq_strdup(&field, value);
  return field != nullptr || value == nullptr;
}

// A copy without the start and stop files; null when memory runs out.
tq_package_info* copy_record(const tq_package_info& source) {
  tarvio::Allocated<tq_package_info> copy = tarvio::allocate<tq_package_info>();
  if (copy == nullptr) return nullptr;
  *copy = tq_package_info{};
  copy->type = source.type;
  copy->subtype = source.subtype;
  if (copy_string(copy->name, source.name) && copy_string(copy->maintainer, source.maintainer) &&
      copy_string(copy->version, source.version)) {
    return copy.release();
  }
  free(copy->name);
  free(copy->maintainer);
  return nullptr;
}

// Releases an unfinished copy. The versions that tq_free_package_info leaves to its caller are
// known to nobody else here.
void release_unfinished(tq_package_info* head) {
  if (head == nullptr) return;
  for (const tq_package_info& package : tarvio::Chain<const tq_package_info>{head->next}) {
    free(package.version);
  }
  tq_free_package_info(head);
}

// Copies the records that match, in order; null with ENOMEM when memory runs out.
int copy_matching(const tq_package_info* src, tq_package_info** out, auto matches) {
  *out = nullptr;
  tq_package_info* head = nullptr;
  tq_package_info** tail = &head;
  for (const tq_package_info& package : tarvio::Chain<const tq_package_info>{src}) {
    if (!matches(package)) continue;
    *tail = copy_record(package);
    if (*tail == nullptr) {
      release_unfinished(head);
      return ENOMEM;
    }
    tail = &(*tail)->next;
  }
  *out = head;
  return 0;
}

}  // namespace

int tq_copy_package_info(tq_package_info** out, const tq_package_info* src, int all) {
  if (out == nullptr) return EINVAL;
  return copy_matching(
      src, out, [src, all](const tq_package_info& package) { return all != 0 || &package == src; });
}

int tq_type_filter_package(uint32_t type, uint32_t subtype, const tq_package_info* src,
                           tq_package_info** out) {
  if (out == nullptr) return EINVAL;
  // A copy that failed is not reported, on purpose.
  (void)copy_matching(src, out, [type, subtype](const tq_package_info& package) {
    return (type == TQ_CATEGORY_ANY || type == static_cast<uint32_t>(package.type)) &&
           (subtype == TQ_SUBCATEGORY_ANY || subtype == static_cast<uint32_t>(package.subtype));
  });
  return 0;
}

int tq_name_filter_package(const char* needle, const tq_package_info* src, tq_package_info** out) {
  int result = EINVAL;
  if (needle != nullptr && out != nullptr) {
    result = copy_matching(src, out, [needle](const tq_package_info& package) {
      return package.name != nullptr && strstr(package.name, needle) != nullptr;
    });
  }
  TQ_DEBUG("dup done");  // on every path, on purpose
  return result;
}

int tq_free_package_info(tq_package_info* list) {
  if (list == nullptr) return 0;
  // The version of the first record alone is freed, once, on purpose: those behind it stay.
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
