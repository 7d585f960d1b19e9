// packages.hpp and error.hpp: packages as values, and codes as errors.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "support/files.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/packages/opkg_tool.h"
#include "tarvio/tarvio.hpp"

namespace tarvio_test {
namespace {

using tarvio::Category;
using tarvio::Package;
using tarvio::Subcategory;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kInfo = "/usr/lib/opkg/info/";

int cannot_open(const char*, int, ...) {
  errno = EIO;
  return -1;
}

class CppPackages : public testing::Test {
 protected:
  CppPackages() {
    write_kernel_command_line("root=/dev/mtdblock4\n");
    add("clock", "Application", "Application_Java");
    write_program(kInfo + "clock.tqstartapp", "");
    add("firmware", "Image", "Image_Kernel");
  }

  static void add(const std::string& name, const std::string& category,
                  const std::string& subcategory) {
    write_file(kInfo + name + ".control", "Package: " + name + "\nVersion: 1.2\nMaintainer: Me\n");
    write_file(kInfo + name + ".tqcontrol",
               "TqPackageCategory: " + category + "\nTqPackageSubCategory: " + subcategory + "\n");
  }

  static std::vector<std::string> names_of(const std::vector<Package>& packages) {
    std::vector<std::string> names;
    for (const Package& package : packages) names.push_back(package.name);
    return names;
  }

  const LogCapture log_;
  std::error_code error_ = std::make_error_code(std::errc::io_error);
};

TEST_F(CppPackages, AreListedAllOrByCategory) {
  EXPECT_THAT(names_of(tarvio::packages(error_)), ElementsAre("firmware", "clock"));
  EXPECT_FALSE(error_);
  EXPECT_THAT(names_of(tarvio::packages(Category::kApplication, error_)), ElementsAre("clock"));
  EXPECT_THAT(names_of(tarvio::packages(Category::kOther, error_)), IsEmpty());
  EXPECT_FALSE(error_);
}

TEST_F(CppPackages, HaveAllThatTheListingKnows) {
  const std::optional<Package> clock = tarvio::find_package("clock", error_);
  ASSERT_TRUE(clock.has_value());
  EXPECT_EQ(clock->name, "clock");
  EXPECT_EQ(clock->version, "1.2");
  EXPECT_EQ(clock->category, Category::kApplication);
  EXPECT_EQ(clock->subcategory, Subcategory::kJava);
  EXPECT_EQ(clock->maintainer, "Me");
  EXPECT_EQ(clock->start_file, kInfo + "clock.tqstartapp");
  EXPECT_EQ(clock->stop_file, "");
}

TEST_F(CppPackages, AreFoundByTheirWholeName) {
  EXPECT_FALSE(tarvio::find_package("clo", error_).has_value());
  EXPECT_FALSE(error_);
}

TEST_F(CppPackages, AreListedEvenWhenTheBootTestFails) {
  const Hook open("open", &cannot_open);
  EXPECT_THAT(names_of(tarvio::packages(error_)), ElementsAre("firmware", "clock"));
  EXPECT_EQ(error_, std::errc::io_error);
}

TEST_F(CppPackages, AreInstalledAndRemovedByOpkg) {
  const OpkgTool opkg;
  write_file("/tmp/cpp.tbx", "");
  EXPECT_FALSE(tarvio::install_package("/tmp/cpp.tbx"));
  EXPECT_FALSE(tarvio::remove_package("clock"));
  EXPECT_FALSE(tarvio::remove_package("clock", tarvio::Force::kYes));
  EXPECT_THAT(opkg.arguments(), ElementsAre("install", "/tmp/cpp.ipk", "remove", "clock",
                                            "--force-depends", "remove", "clock"));
  std::filesystem::remove("/tmp/cpp.tbx");
}

TEST_F(CppPackages, FailWithTheCodeOfWhatOpkgPrints) {
  const OpkgTool opkg(" * Only have 12kb available on filesystem /\n");
  write_file("/tmp/cpp.tbx", "");
  const std::error_code error = tarvio::install_package("/tmp/cpp.tbx");
  EXPECT_EQ(error, tarvio::Errc::kPackageNoSpace);
  EXPECT_EQ(error.value(), TQ_ERR_PACKAGE_NO_SPACE);
  EXPECT_EQ(tarvio::install_package("/tmp/no-such.tbx"), std::errc::no_such_file_or_directory);
  std::filesystem::remove("/tmp/cpp.tbx");
}

// The C calls would see another text.
TEST_F(CppPackages, HaveNoNulInTheirNames) {
  const OpkgTool opkg;
  const std::string name("clock\0x", 7);
  EXPECT_FALSE(tarvio::find_package(name, error_).has_value());
  EXPECT_EQ(error_, std::errc::invalid_argument);
  error_.clear();
  EXPECT_THAT(tarvio::package_files(name, error_), IsEmpty());
  EXPECT_EQ(error_, std::errc::invalid_argument);
  EXPECT_EQ(tarvio::remove_package(name), std::errc::invalid_argument);
  EXPECT_EQ(tarvio::install_package(name), std::errc::invalid_argument);
  EXPECT_THAT(opkg.arguments(), IsEmpty());
}

TEST_F(CppPackages, HaveTheirFilesInOrder) {
  const OpkgTool opkg("Package clock is installed on root and has the following files:\n/b\n/a\n");
  EXPECT_THAT(tarvio::package_files("clock", error_), ElementsAre("/b", "/a"));
  EXPECT_FALSE(error_);
  opkg.prints("Collected errors:\n * Permission denied.\n");
  EXPECT_THAT(tarvio::package_files("clock", error_), IsEmpty());
  EXPECT_EQ(error_, std::errc::permission_denied);
}

TEST(CppError, HasTheMessagesOfTheSystem) {
  EXPECT_EQ(tarvio::error_of(2).message(), std::strerror(2));
  EXPECT_EQ(tarvio::error_of(10301).message(), "Tarvio malformed package error.");
  EXPECT_EQ(tarvio::error_of(-1).message(), std::strerror(-1));
  EXPECT_STREQ(tarvio::error_of(2).category().name(), "tarvio");
}

TEST(CppError, NamesACodeThatHasNoMessage) {
  EXPECT_EQ(tarvio::make_error_code(tarvio::Errc::kPackageUnsupported).message(), "error 10304");
}

TEST(CppError, IsNoneForTheCodeOfSuccess) { EXPECT_EQ(tarvio::error_of(0), std::error_code()); }

TEST(CppError, OfTheLibraryIsNoneOfTheSystem) {
  EXPECT_EQ(tarvio::error_of(ENOSPC), std::errc::no_space_on_device);
  EXPECT_NE(tarvio::error_of(10303), std::errc::no_space_on_device);
  EXPECT_NE(tarvio::error_of(-1), std::errc::operation_not_permitted);
  EXPECT_EQ(tarvio::error_of(10302), tarvio::Errc::kPackageDependency);
  EXPECT_NE(tarvio::error_of(10303), tarvio::Errc::kPackageDependency);  // of the same text
}

}  // namespace
}  // namespace tarvio_test
