#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <span>
#include <string_view>

#include "base/offline_root.h"
#include "base/owners.h"
#include "package/tq_tbx_package_binding/category.h"
#include "tarvio/conf.h"
#include "tarvio/file.h"
#include "tarvio/opkg.h"
#include "tarvio/package.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

using tarvio::Conf;
using tarvio::CString;

static_assert(sizeof(void*) == 8
                  ? offsetof(tq_package_info, maintainer) == 24 && sizeof(tq_package_info) == 56
                  : offsetof(tq_package_info, maintainer) == 16 && sizeof(tq_package_info) == 32);
static_assert(offsetof(tq_package_info, subtype) == 2 * sizeof(void*) + 4);

namespace {

constexpr char kFunction[] = "tq_tbx_list";
constexpr char kMallocError[] = "malloc error";
constexpr char kInfoDirectory[] = "/usr/lib/opkg/info";
constexpr std::string_view kControlSuffix = ".control";

struct FreePackages {
  void operator()(tq_package_info* head) const noexcept {
    tq_delete_tq_package_info_recurse(&head);
  }
};
using Packages = std::unique_ptr<tq_package_info, FreePackages>;

struct Filter {
  uint32_t type;
  uint32_t subtype;
  const char* name;

  [[nodiscard]] bool keeps(int32_t category, int32_t subcategory) const {
    const bool right_type = type == TQ_CATEGORY_ANY || type == static_cast<uint32_t>(category);
    return right_type &&
           (subtype == TQ_SUBCATEGORY_ANY || subtype == static_cast<uint32_t>(subcategory));
  }
};

// The entries that scandir found.
class Entries {
 public:
  explicit Entries(const char* directory)
      : count_(scandir(directory, &entries_, is_control_file, alphasort)) {}
  Entries(const Entries&) = delete;
  Entries& operator=(const Entries&) = delete;
  ~Entries() {
    if (count_ < 0) return;
    for (dirent* entry : all()) free(entry);
    free(entries_);
  }

  [[nodiscard]] bool failed() const { return count_ < 0; }
  [[nodiscard]] std::span<dirent* const> all() const {
    return {entries_, static_cast<size_t>(count_)};
  }

 private:
  static int is_control_file(const dirent* entry) {
    const std::string_view name = entry->d_name;
    return name.size() > kControlSuffix.size() && name.ends_with(kControlSuffix) ? 1 : 0;
  }

  dirent** entries_ = nullptr;
  int count_;
};

// DIRECTORY/NAME and a suffix; null when memory runs out.
CString path_of(const char* directory, const char* name, const char* suffix) {
  const size_t size = strlen(directory) + 1 + strlen(name) + strlen(suffix) + 1;
  CString path(static_cast<char*>(malloc(size)));
  if (path != nullptr) (void)snprintf(path.get(), size, "%s/%s%s", directory, name, suffix);
  return path;
}

// Like path_of, but the empty string when there is no such file.
CString path_of_existing(const char* directory, const char* name, const char* suffix) {
  CString path = path_of(directory, name, suffix);
  int32_t exists = 0;
  tq_file_exist(path.get(), &exists);
  if (path != nullptr && exists == 0) *path = '\0';
  return path;
}

int out_of_memory(const char* function) {
  TQ_DEBUG("%s: %s ", function, kMallocError);
  return -1;  // not an errno value, on purpose
}

bool copy_into(char*& field, const char* value) {
  tq_strdup(&field, value);
  return field != nullptr;
}

// The information directory as one listing sees it, and the packages kept so far.
class Listing {
 public:
  Listing(const char* directory, const Filter& filter) : directory_(directory), filter_(filter) {}

  // Reads the package of a control file and keeps it if it passes the filter. Returns 0 also for a
  // package that is left out.
  int read(const char* control_name);

  tq_package_info* release() { return kept_.release(); }

 private:
  struct Found {
    const char* name;
    const char* version;
    const char* maintainer;
    int32_t type;
    int32_t subtype;
  };

  int read_package(const tq_conf* control);
  int keep(const Found& found, const char* start_app, const char* stop_app);
  int path_failed() const;

  const char* directory_;
  Filter filter_;
  Packages kept_;
};

int Listing::path_failed() const {
  TQ_DEBUG("%s: malloc error ", kFunction);
  return ENOMEM;
}

int Listing::read(const char* control_name) {
  TQ_DEBUG("%s: control file name=[%s] ", kFunction, control_name);
  const CString path = path_of(directory_, control_name, "");
  if (path == nullptr) return path_failed();
  const Conf control(tq_conf_open(path.get()));
  return control == nullptr ? 0 : read_package(control.get());
}

int Listing::read_package(const tq_conf* control) {
  Found found = {};
  found.name = tq_conf_read(control, "Package");
  found.version = tq_conf_read(control, "Version");
  found.maintainer = tq_conf_read(control, "Maintainer");
  TQ_DEBUG("%s: Read package: [%s] ", kFunction, found.name);
  if (*found.name == '\0') return 0;
  if (filter_.name != nullptr && strcmp(filter_.name, found.name) != 0) return 0;
  TQ_DEBUG("%s: Target package: [%s] ", kFunction, found.name);

  const CString path = path_of(directory_, found.name, ".tqcontrol");
  if (path == nullptr) return path_failed();
  TQ_DEBUG("%s: tqcontrol: [%s] ", kFunction, path.get());
  const Conf tqcontrol(tq_conf_open(path.get()));
  if (tqcontrol == nullptr) return 0;
  const char* category = tq_conf_read(tqcontrol.get(), "TqPackageCategory");
  const char* subcategory = tq_conf_read(tqcontrol.get(), "TqPackageSubCategory");
  TQ_DEBUG("%s: pkg:[%s], category: [%s], subcategory: [%s] ", kFunction, found.name, category,
           subcategory);

  const CString start_app = path_of_existing(directory_, found.name, ".tqstartapp");
  const CString stop_app = path_of_existing(directory_, found.name, ".tqstopapp");
  if (start_app == nullptr || stop_app == nullptr) return path_failed();
  found.type = tarvio::category_code(category);
  found.subtype = tarvio::subcategory_code(subcategory);
  const bool kept = filter_.keeps(found.type, found.subtype);
  TQ_DEBUG("type check result %d", kept ? 1 : 0);
  return kept ? keep(found, start_app.get(), stop_app.get()) : 0;
}

int Listing::keep(const Found& found, const char* start_app, const char* stop_app) {
  Packages package(tarvio::allocate<tq_package_info>().release());
  if (package == nullptr) return out_of_memory("tq_add_tbx_info");
  *package = tq_package_info{};
  package->type = found.type;
  package->subtype = found.subtype;
  if (!copy_into(package->name, found.name) || !copy_into(package->version, found.version) ||
      !copy_into(package->maintainer, found.maintainer) ||
      !copy_into(package->start_app, start_app) || !copy_into(package->stop_app, stop_app)) {
    return out_of_memory("tq_add_tbx_info");
  }
  package->next = kept_.release();  // in front, so that the list runs from Z to A
  kept_ = std::move(package);
  return 0;
}

}  // namespace

int tq_tbx_list(uint32_t type, uint32_t subtype, const char* name, tq_package_info** out) {
  if (out == nullptr) return EINVAL;
  int online = 1;  // what counts when the boot test fails
  const int boot_test = tq_is_boot_online(&online);

  char directory[sizeof tarvio::kOfflineRoot + sizeof kInfoDirectory];
  (void)snprintf(directory, sizeof directory, "%s%s", online != 0 ? "" : tarvio::kOfflineRoot,
                 kInfoDirectory);
  TQ_DEBUG("%s: tqlist scandir=%s ", kFunction, directory);
  const Entries entries(directory);
  if (entries.failed()) {
    TQ_DEBUG("%s: scandir error ", kFunction);
    return errno;
  }

  Listing listing(directory, {.type = type, .subtype = subtype, .name = name});
  for (const dirent* entry : entries.all()) {
    const int result = listing.read(entry->d_name);
    if (result == -1) return out_of_memory(kFunction);
    if (result != 0) return result;
  }
  *out = listing.release();
  return boot_test;
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
