// Uses all that the headers for C++ have.
#include <tarvio/tarvio.hpp>

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

std::error_code use_manager();
std::error_code use_packages();
std::error_code use_flash();

std::error_code use_manager() {
  const tarvio::Manager manager(std::chrono::milliseconds(1));
  std::error_code error;
  for (const tarvio::Status& status : manager.statuses(error)) {
    if (status.state == tarvio::State::kError) return manager.stop(status.name);
  }
  if (!manager.application_statuses(error).empty()) return manager.stop_all();
  if (manager.refresh() || manager.start("clock")) return manager.start_all();
  return tarvio::Manager().refresh();
}

std::error_code use_packages() {
  std::error_code error;
  for (const tarvio::Package& package : tarvio::packages(tarvio::Category::kApplication, error)) {
    if (package.subcategory != tarvio::Subcategory::kNative) continue;
    if (tarvio::package_files(package.name, error).empty()) tarvio::remove_package(package.name);
  }
  if (tarvio::find_package("clock", error) || tarvio::packages(error).empty()) return error;
  error = tarvio::install_package("clock.tbx");
  if (error != tarvio::Errc::kPackageDependency) return error;
  return tarvio::install_package("clock.tbx", tarvio::Force::kYes);
}

std::error_code use_flash() {
  const std::vector<tarvio::Area> areas = {tarvio::Area::kKernel};
  const auto observe = [](const tarvio::FlashEvent& event) {
    return std::make_error_code(event.code == 0 ? std::errc() : std::errc::operation_canceled);
  };
  if (tarvio::back_up(areas, ".", "image.tbx") || tarvio::restore("image.tbx", ".")) return {};
  if (tarvio::back_up(areas, ".", "", observe)) return tarvio::restore("image.tbx", ".", observe);
  return tarvio::make_error_code(tarvio::Errc::kPackageOther);
}

// Nothing of the above, which would work on the machine.
int main() {
  const std::error_code error = tarvio::error_of(TQ_ERR_PACKAGE_MALFORMED);
  std::printf("%s: %s\n", error.category().name(), error.message().c_str());
  return error == tarvio::Errc::kPackageMalformed ? 0 : 1;
}
