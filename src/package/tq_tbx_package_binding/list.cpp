#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <span>
#include <string_view>

#include "base/offline_root.h"
#include "base/owners.h"
#include "package/package_record.h"
#include "package/tq_tbx_package_binding/category.h"
#include "tarvio/conf.h"
#include "tarvio/file.h"
#include "tarvio/opkg.h"
#include "util/log_macros.h"

using tarvio::Conf;
using tarvio::CString;
using tarvio::Packages;

static_assert(sizeof(void*) == 8
                  ? offsetof(tq_package_info, maintainer) == 24 && sizeof(tq_package_info) == 56
                  : offsetof(tq_package_info, maintainer) == 16 && sizeof(tq_package_info) == 32);
static_assert(offsetof(tq_package_info, subtype) == 2 * sizeof(void*) + 4);

namespace {

constexpr char kFunction[] = "tq_tbx_list";
constexpr char kInfoDirectory[] = "/usr/lib/opkg/info";
constexpr std::string_view kControlSuffix = ".control";

// One call: where it looks, what it keeps, and what it has kept so far.
struct Listing {
  const char* directory;
  tarvio::CategoryFilter categories;
  const char* name;  // null for any
  Packages packages;
};

int is_control_file(const dirent* entry) {
  const std::string_view name = entry->d_name;
  return name.size() > kControlSuffix.size() && name.ends_with(kControlSuffix) ? 1 : 0;
}

// DIRECTORY/NAME and a suffix; null when memory runs out, which is logged.
CString path_of(const Listing& listing, const char* name, const char* suffix) {
  const size_t size = strlen(listing.directory) + 1 + strlen(name) + strlen(suffix) + 1;
  CString path(static_cast<char*>(malloc(size)));
  if (path == nullptr) {
    TQ_DEBUG("%s: malloc error ", kFunction);
  } else {
    (void)snprintf(path.get(), size, "%s/%s%s", listing.directory, name, suffix);
  }
  return path;
}

// Like path_of, but the empty string when there is no such file.
CString path_of_existing(const Listing& listing, const char* name, const char* suffix) {
  CString path = path_of(listing, name, suffix);
  int32_t exists = 0;
  tq_file_exist(path.get(), &exists);
  if (path != nullptr && exists == 0) *path = '\0';
  return path;
}

int add_package(Listing& listing, Packages package) {
  if (package == nullptr) {
    for (const char* function : {"tq_add_tbx_info", kFunction}) {
      TQ_DEBUG("%s: %s ", function, "malloc error");
    }
    return -1;  // not an errno value (oddity 68)
  }
  package->next = listing.packages.release();  // in front: from Z to A (oddity 65)
  listing.packages = std::move(package);
  return 0;
}

// The package of a control file, whose name comes from the file and not from the file's own name
// (oddity 67). Returns 0 also for a package that is left out.
int read_package(Listing& listing, const tq_conf& control) {
  const char* const name = tq_conf_read(&control, "Package");
  const char* const version = tq_conf_read(&control, "Version");
  const char* const maintainer = tq_conf_read(&control, "Maintainer");
  TQ_DEBUG("%s: Read package: [%s] ", kFunction, name);
  if (*name == '\0' || (listing.name != nullptr && strcmp(listing.name, name) != 0)) return 0;
  TQ_DEBUG("%s: Target package: [%s] ", kFunction, name);

  const CString path = path_of(listing, name, ".tqcontrol");
  if (path == nullptr) return ENOMEM;
  TQ_DEBUG("%s: tqcontrol: [%s] ", kFunction, path.get());
  const Conf tqcontrol(tq_conf_open(path.get()));
  if (tqcontrol == nullptr) return 0;  // (oddity 66)
  const char* const category = tq_conf_read(tqcontrol.get(), "TqPackageCategory");
  const char* const subcategory = tq_conf_read(tqcontrol.get(), "TqPackageSubCategory");
  TQ_DEBUG("%s: pkg:[%s], category: [%s], subcategory: [%s] ", kFunction, name, category,
           subcategory);

  const CString start_app = path_of_existing(listing, name, ".tqstartapp");
  const CString stop_app = path_of_existing(listing, name, ".tqstopapp");
  if (start_app == nullptr || stop_app == nullptr) return ENOMEM;
  const int32_t type = tarvio::category_code(category);
  const int32_t subtype = tarvio::subcategory_code(subcategory);
  const bool kept = listing.categories.keeps(type, subtype);
  TQ_DEBUG("type check result %d", kept ? 1 : 0);
  if (!kept) return 0;
  return add_package(listing, tarvio::make_package(type, subtype,
                                                   {{&tq_package_info::name, name},
                                                    {&tq_package_info::version, version},
                                                    {&tq_package_info::maintainer, maintainer},
                                                    {&tq_package_info::start_app, start_app.get()},
                                                    {&tq_package_info::stop_app, stop_app.get()}}));
}

int read_control_file(Listing& listing, const char* file_name) {
  TQ_DEBUG("%s: control file name=[%s] ", kFunction, file_name);
  const CString path = path_of(listing, file_name, "");
  if (path == nullptr) return ENOMEM;
  const Conf control(tq_conf_open(path.get()));
  return control == nullptr ? 0 : read_package(listing, *control);
}

int read_directory(Listing& listing) {
  dirent** found = nullptr;
  const int count = scandir(listing.directory, &found, is_control_file, alphasort);
  if (count < 0) {
    const int error = errno;
    TQ_DEBUG("%s: scandir error ", kFunction);
    return error;
  }
  const tarvio::Allocated<dirent*> entries(found);
  int result = 0;
  for (dirent* at : std::span(found, static_cast<size_t>(count))) {
    const tarvio::Allocated<dirent> entry(at);
    if (result == 0) result = read_control_file(listing, entry->d_name);
  }
  return result;
}

}  // namespace

int tq_tbx_list(uint32_t type, uint32_t subtype, const char* name, tq_package_info** out) {
  if (out == nullptr) return EINVAL;
  int online = 1;  // stays so when the boot test fails (oddity 61)
  const int boot_test = tq_is_boot_online(&online);

  char directory[sizeof tarvio::kOfflineRoot + sizeof kInfoDirectory];
  (void)snprintf(directory, sizeof directory, "%s%s", online != 0 ? "" : tarvio::kOfflineRoot,
                 kInfoDirectory);
  TQ_DEBUG("%s: tqlist scandir=%s ", kFunction, directory);
  Listing listing = {directory, {.type = type, .subtype = subtype}, name, nullptr};
  const int result = read_directory(listing);
  if (result != 0) return result;
  *out = listing.packages.release();
  return boot_test;  // with the packages (oddity 69)
}

int tq_delete_tq_package_info_recurse(tq_package_info** head) {
  if (head == nullptr) return 0;
  while (*head != nullptr) {
    tq_package_info* package = *head;
    *head = package->next;
    free(package->name);
    free(package->version);
    free(package->maintainer);
    free(package->start_app);
    free(package->stop_app);
    free(package);
  }
  return 0;
}
