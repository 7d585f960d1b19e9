#include "packages/package_listing.h"

#include "tarvio/client.h"

namespace client {

Listing list_packages(uint32_t category, uint32_t subcategory, const char* name) {
  Listing listing;
  tq_package_info* head = nullptr;
  listing.code = tq_lib_list_pkg(category, subcategory, name, &head);
  for (const tq_package_info* package = head; package != nullptr; package = package->next) {
    listing.packages.push_back({.name = package->name,
                                .version = package->version,
                                .category = package->type,
                                .subcategory = package->subtype,
                                .maintainer = package->maintainer,
                                .start_file = package->start_app,
                                .stop_file = package->stop_app});
  }
  (void)tq_delete_tq_package_info_recurse(&head);
  return listing;
}

}  // namespace client
