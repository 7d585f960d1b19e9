#include "packages/installed.h"

#include "base/offline_root.h"
#include "base/owners.h"
#include "packages/package_listing.h"
#include "tarvio/conf.h"
#include "tarvio/opkg.h"
#include "tarvio/package.h"

namespace client {

namespace {

constexpr char kInformation[] = "/usr/lib/opkg/info/";

}  // namespace

std::string root_of_packages() {
  int online = 1;
  (void)tq_is_boot_online(&online);  // a test that failed counts as online (oddity 61)
  return online != 0 ? "" : tarvio::kOfflineRoot;
}

Installed look_up(const std::string& name) {
  Installed installed;
  const std::string control = root_of_packages() + kInformation + name + ".control";
  if (stat(control.c_str(), &installed.control) != 0) return installed;
  const Listing listing = list_packages(TQ_CATEGORY_ANY, TQ_SUBCATEGORY_ANY, name.c_str());
  if (!listing.packages.empty()) {
    const Package& package = listing.packages.front();
    installed.version = package.version;
    installed.is_listed = true;
    installed.is_application = package.category == TQ_CATEGORY_APPLICATION;
    return installed;
  }
  const tarvio::Conf read(tq_conf_open(control.c_str()));
  installed.version = read == nullptr ? "" : tq_conf_read(read.get(), "Version");
  return installed;
}

bool is_reinstalled(const Installed& before, const Installed& after) {
  return before.control.st_ino != after.control.st_ino ||
         before.control.st_ctim.tv_sec != after.control.st_ctim.tv_sec ||
         before.control.st_ctim.tv_nsec != after.control.st_ctim.tv_nsec;
}

}  // namespace client
