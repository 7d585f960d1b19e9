// Packages: listing, installing, removing.
#ifndef TARVIO_PACKAGES_HPP
#define TARVIO_PACKAGES_HPP

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tarvio/client.h"
#include "tarvio/error.hpp"
#include "tarvio/package.h"

namespace tarvio {

// What a package is.
enum class Category : std::int32_t {
  kImage = TQ_CATEGORY_IMAGE,
  kApplication = TQ_CATEGORY_APPLICATION,
  kOther = TQ_CATEGORY_OTHER
};

// Which kind of application it is.
enum class Subcategory : std::int32_t {
  kNative = TQ_SUBCATEGORY_NATIVE,
  kJava = TQ_SUBCATEGORY_JAVA,
  kBrowser = TQ_SUBCATEGORY_BROWSER,
  kJsp = TQ_SUBCATEGORY_JSP,
  kOther = TQ_SUBCATEGORY_OTHER
};

// An installed package.
struct Package {
  std::string name;                               // "Package" of its control file
  std::string version;                            // "Version"
  Category category = Category::kOther;           // "TqPackageCategory" of its tqcontrol file
  Subcategory subcategory = Subcategory::kOther;  // "TqPackageSubCategory"
  std::string maintainer;                         // "Maintainer"
  std::string start_file;                         // path; empty when the package has none
  std::string stop_file;                          // the same
};

// Whether opkg is to pass over what it would refuse, see tq_tbx_install and tq_tbx_remove.
enum class Force : bool { kNo, kYes };

namespace detail {

struct DeletePackages {
  void operator()(tq_package_info *head) const noexcept {
    (void)tq_delete_tq_package_info_recurse(&head);
  }
};

// The names of the files of a package.
struct FileNames {
  FileNames() = default;
  ~FileNames() {
    for (std::uint32_t at = 0; at < count; ++at) std::free(names[at]);
    std::free(names);
  }
  FileNames(const FileNames &) = delete;
  FileNames &operator=(const FileNames &) = delete;

  std::uint32_t count = 0;
  char **names = nullptr;
};

inline std::vector<Package> list_packages(std::uint32_t category, const char *name,
                                          std::error_code &error) {
  tq_package_info *head = nullptr;
  error = error_of(tq_lib_list_pkg(category, TQ_SUBCATEGORY_ANY, name, &head));
  const std::unique_ptr<tq_package_info, DeletePackages> owner(head);
  std::vector<Package> packages;
  for (; head != nullptr; head = head->next) {
    packages.push_back({head->name, head->version, static_cast<Category>(head->type),
                        static_cast<Subcategory>(head->subtype), head->maintainer, head->start_app,
                        head->stop_app});
  }
  return packages;
}

}  // namespace detail

// The installed packages, all or those of a category. An error of the boot test (see tq_tbx_list) comes
// with the packages of the installed root.
inline std::vector<Package> packages(std::error_code &error) {
  return detail::list_packages(TQ_CATEGORY_ANY, nullptr, error);
}
inline std::vector<Package> packages(Category category, std::error_code &error) {
  return detail::list_packages(static_cast<std::uint32_t>(category), nullptr, error);
}

// The installed package with exactly this name. As everywhere below, std::errc::invalid_argument for a text
// with a NUL in it.
inline std::optional<Package> find_package(const std::string &name, std::error_code &error) {
  if (!detail::is_c_string(name)) {
    error = error_of(EINVAL);
    return std::nullopt;
  }
  std::vector<Package> found = detail::list_packages(TQ_CATEGORY_ANY, name.c_str(), error);
  if (found.empty()) return std::nullopt;
  return std::move(found.front());
}

// The files of an installed package, in opkg's order.
inline std::vector<std::string> package_files(const std::string &name, std::error_code &error) {
  if (!detail::is_c_string(name)) {
    error = error_of(EINVAL);
    return {};
  }
  detail::FileNames files;
  error = error_of(tq_lib_files_pkg(name.c_str(), &files.count, &files.names));
  return {files.names, files.names + files.count};
}

// Installs a package file (.tbx), and removes a package. opkg fails in ways that it has no known message
// for: find_package says what is installed then, and Manager::refresh makes the manager know it.
inline std::error_code install_package(const std::string &path, Force force = Force::kNo) {
  if (!detail::is_c_string(path)) return error_of(EINVAL);
  return error_of(tq_lib_install_pkg(path.c_str(), force == Force::kYes));
}
inline std::error_code remove_package(const std::string &name, Force force = Force::kNo) {
  if (!detail::is_c_string(name)) return error_of(EINVAL);
  return error_of(tq_lib_remove_pkg(name.c_str(), force == Force::kYes));
}

}  // namespace tarvio

#endif
