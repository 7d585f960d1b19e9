#include "packages/package_listing.h"

#include <cerrno>

#include "packages/control_fields.h"
#include "packages/opkg_information.h"
#include "process/failure.h"
#include "tarvio/client.h"
#include "terminal/words.h"

namespace client {

namespace {

Listing listing_of_library() {
  Listing listing;
  tq_package_info* head = nullptr;
  listing.code = tq_lib_list_pkg(TQ_CATEGORY_ANY, TQ_SUBCATEGORY_ANY, nullptr, &head);
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
  // Memory is the one reason for which the library has no errno value here (oddity 68).
  if (listing.code < 0) listing.reason = "out of memory";
  if (listing.code > 0) listing.reason = result_words(listing.code);
  return listing;
}

// The library passes over a file that it cannot read, as over one that is not there (oddity 66),
// and over what finds no memory (oddity 30). Throws a Failure when it may have done so.
void check_complete(const std::vector<Package>& packages) {
  const std::string directory = information_directory() + '/';
  for (const std::string& file : control_files_in(directory)) {
    const std::string control = read_information(directory + file).value_or("");
    const std::string name = value_in(control, "Package");
    const std::string beginning = directory + name;
    if (is_package_name(name)) (void)read_information(beginning + ".tqcontrol");
  }
  const Listing again = listing_of_library();
  if (again.code != 0) throw Failure(again.code, again.reason);
  if (again.packages != packages) {
    throw Failure(EAGAIN, "they changed, or one of them could not be read; try again");
  }
}

void check(Listing& listing) {
  try {
    if (listing.packages.empty()) check_place_of_information("");
    listing.lacks_directory = listing.code == ENOENT;
    if (listing.code == 0) check_complete(listing.packages);
  } catch (const Failure& failure) {
    listing.code = failure.code();
    listing.reason = failure.what();
  }
}

}  // namespace

Listing list_packages(uint32_t category, uint32_t subcategory, const char* name) {
  Listing listing = listing_of_library();
  check(listing);
  const auto is_left_out = [&](const Package& package) {
    return (category != TQ_CATEGORY_ANY && category != static_cast<uint32_t>(package.category)) ||
           (subcategory != TQ_SUBCATEGORY_ANY &&
            subcategory != static_cast<uint32_t>(package.subcategory)) ||
           (name != nullptr && package.name != name);
  };
  std::erase_if(listing.packages, is_left_out);
  return listing;
}

}  // namespace client
