// Calls the listing of installed packages, and releases what it made.
#ifndef TARVIO_TESTS_SUPPORT_PACKAGES_PACKAGE_LISTING_H
#define TARVIO_TESTS_SUPPORT_PACKAGES_PACKAGE_LISTING_H

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"
#include "tarvio/package.h"

namespace tarvio_test {

inline constexpr char kListingUnit[] = "package/tq_tbx_package_binding";
inline constexpr char kInformation[] = "/usr/lib/opkg/info";

struct ListedPackage {
  std::string name;
  std::string version;
  std::string maintainer;
  int32_t type;
  int32_t subtype;
  std::string start_app;
  std::string stop_app;
};

// One call of tq_tbx_list. What it left alone is not null.
class Listing {
 public:
  explicit Listing(uint32_t type = TQ_CATEGORY_ANY, uint32_t subtype = TQ_SUBCATEGORY_ANY,
                   const char* name = nullptr)
      : result_(tq_tbx_list(type, subtype, name, &head_)) {}
  ~Listing() {
    if (!untouched()) tq_delete_tq_package_info_recurse(&head_);
  }
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;

  int result() const { return result_; }
  bool untouched() const { return head_ == poison(); }
  std::vector<ListedPackage> packages() const {
    std::vector<ListedPackage> packages;
    if (untouched()) ADD_FAILURE() << "nothing was listed, result " << result_;
    for (const tq_package_info* at = untouched() ? nullptr : head_; at != nullptr; at = at->next)
      packages.push_back({at->name, at->version, at->maintainer, at->type, at->subtype,
                          at->start_app, at->stop_app});
    return packages;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const ListedPackage& package : packages()) names.push_back(package.name);
    return names;
  }
  // The one package; a record without a name when there are none or several.
  ListedPackage only() const {
    const std::vector<ListedPackage> all = packages();
    EXPECT_EQ(all.size(), 1U);
    return all.size() == 1 ? all[0] : ListedPackage{};
  }

 private:
  static tq_package_info* poison() { return reinterpret_cast<tq_package_info*>(1); }

  tq_package_info* head_ = poison();
  int result_;
};

// Files of the information directory.
inline void write_information(const std::string& name, const std::string& content,
                              const std::string& directory = kInformation) {
  write_file(std::filesystem::path(directory) / name, content);
}

inline void add_package(const std::string& name, const std::string& category = "Application",
                        const std::string& subcategory = "Application_Native",
                        const std::string& directory = kInformation) {
  write_information(name + ".control", "Package: " + name + "\nVersion: 1.0\nMaintainer: Halvern\n",
                    directory);
  write_information(
      name + ".tqcontrol",
      "TqPackageCategory: " + category + "\nTqPackageSubCategory: " + subcategory + "\n",
      directory);
}

}  // namespace tarvio_test

#endif
