#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/packages/package_listing.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(PackageList, OfAnEmptyDirectoryIsEmpty) {
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.packages(), IsEmpty());
}

TEST(PackageList, WithoutControlFilesIsEmpty) {
  write_information("alpha.list", "/opt/alpha\n");
  write_information("alpha.tqcontrol", "TqPackageCategory: Application\n");
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.packages(), IsEmpty());
}

TEST(PackageList, HoldsAPackageWithAllItsFields) {
  add_package("alpha", "Image", "Application_Jsp");
  write_information("alpha.tqstartapp", "");
  write_information("alpha.tqstopapp", "");
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  const ListedPackage package = listing.only();
  EXPECT_EQ(package.name, "alpha");
  EXPECT_EQ(package.version, "1.0");
  EXPECT_EQ(package.maintainer, "Halvern");
  EXPECT_EQ(package.type, TQ_CATEGORY_IMAGE);
  EXPECT_EQ(package.subtype, TQ_SUBCATEGORY_JSP);
  EXPECT_EQ(package.start_app, "/usr/lib/opkg/info/alpha.tqstartapp");
  EXPECT_EQ(package.stop_app, "/usr/lib/opkg/info/alpha.tqstopapp");
}

TEST(PackageList, RunsFromZToA) {
  for (const char* name : {"beta", "alpha", "gamma"}) add_package(name);
  EXPECT_THAT(Listing().names(), ElementsAre("gamma", "beta", "alpha"));
}

TEST(PackageList, IsOrderedByTheFilesAndNotByThePackages) {
  write_information("a.control", "Package: zeta\n");
  write_information("b.control", "Package: eta\n");
  write_information("zeta.tqcontrol", "TqPackageCategory: Image\n");
  write_information("eta.tqcontrol", "TqPackageCategory: Image\n");
  EXPECT_THAT(Listing().names(), ElementsAre("eta", "zeta"));
}

TEST(PackageList, TakesTheNameInTheFileAndNotOfTheFile) {
  write_information("file.control", "Package: alpha\n");
  write_information("file.tqcontrol", "TqPackageCategory: Image\n");
  EXPECT_THAT(Listing().names(), IsEmpty());
  write_information("alpha.tqcontrol", "TqPackageCategory: Application\n");
  write_information("alpha.tqstartapp", "");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.name, "alpha");
  EXPECT_EQ(package.type, TQ_CATEGORY_APPLICATION);
  EXPECT_EQ(package.start_app, "/usr/lib/opkg/info/alpha.tqstartapp");
}

TEST(PackageList, HoldsAPackageOncePerControlFile) {
  add_package("alpha");
  write_information("again.control", "Package: alpha\nVersion: 2.0\n");
  EXPECT_THAT(Listing().names(), ElementsAre("alpha", "alpha"));
}

TEST(PackageList, SkipsFilesWithoutANameBeforeTheEnding) {
  add_package("alpha");
  for (const char* name : {".control", "alpha.controls", "alpha.CONTROL", "alphacontrol",
                           "alpha.control.bak", "control"})
    write_information(name, "Package: alpha\n");
  EXPECT_THAT(Listing().names(), SizeIs(1U));
  write_information("x.control", "Package: alpha\n");
  EXPECT_THAT(Listing().names(), SizeIs(2U));
}

TEST(PackageList, HidesPackagesWithoutTqcontrol) {
  write_information("alpha.control", "Package: alpha\nVersion: 1.0\nMaintainer: Halvern\n");
  write_information("alpha.tqstartapp", "");
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.names(), IsEmpty());
}

TEST(PackageList, KeepsTheFirstWordOfAValue) {
  write_information("alpha.control",
                    "Package: alpha\nVersion: 1:2.0\nMaintainer: Halvern Corporation\n"
                    "Description: Version: 9\n");
  write_information("alpha.tqcontrol", "TqPackageCategory: Image file\n");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.version, "1");
  EXPECT_EQ(package.maintainer, "Halvern");
  EXPECT_EQ(package.type, TQ_CATEGORY_IMAGE);
}

TEST(PackageList, KeepsEveryPrintableByteOfAValueButColonAndBlank) {
  std::string value;
  for (char byte = '!'; byte <= '~'; ++byte)
    if (byte != ':') value += byte;
  write_information("alpha.control",
                    "Package: alpha\nVersion: " + value + "\nMaintainer: 100%s%n\n");
  write_information("alpha.tqcontrol", "TqPackageCategory: Image\n");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.version, value);
  EXPECT_EQ(package.maintainer, "100%s%n");
}

struct Mapping {
  const char* value;
  int32_t code;
};

std::ostream& operator<<(std::ostream& stream, const Mapping& row) {
  return stream << '"' << row.value << "\" is " << row.code;
}

class Category : public testing::TestWithParam<Mapping> {};

TEST_P(Category, HasItsCode) {
  add_package("alpha", GetParam().value);
  EXPECT_EQ(Listing().only().type, GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(PackageList, Category,
                         testing::Values(Mapping{"Image", 0}, Mapping{"Application", 1},
                                         Mapping{"Applications", 2}, Mapping{"Applicatio", 2},
                                         Mapping{"application", 2}, Mapping{"image", 2},
                                         Mapping{"Images", 2}, Mapping{"Imag", 2},
                                         Mapping{"Library", 2}, Mapping{"1", 2}, Mapping{"", 2}));

class Subcategory : public testing::TestWithParam<Mapping> {};

TEST_P(Subcategory, HasItsCode) {
  add_package("alpha", "Application", GetParam().value);
  EXPECT_EQ(Listing().only().subtype, GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    PackageList, Subcategory,
    testing::Values(Mapping{"Application_Native", 0}, Mapping{"Application_Java", 1},
                    Mapping{"Application_Browser", 2}, Mapping{"Application_Jsp", 3},
                    Mapping{"Application_Other", 4}, Mapping{"Application_Web", 4},
                    Mapping{"application_java", 4}, Mapping{"Application_Javas", 4},
                    Mapping{"Java", 4}, Mapping{"", 4}));

class Filters : public testing::Test {
 protected:
  Filters() {
    add_package("image", "Image", "Application_Other");
    add_package("java", "Application", "Application_Java");
    add_package("native", "Application", "Application_Native");
    add_package("other", "Library", "Application_Java");
  }
};

TEST_F(Filters, KeepEveryPackageWhenTheyAreOpen) {
  EXPECT_THAT(Listing(100, 151).names(), ElementsAre("other", "native", "java", "image"));
}

TEST_F(Filters, KeepACategory) {
  EXPECT_THAT(Listing(0, 151).names(), ElementsAre("image"));
  EXPECT_THAT(Listing(1, 151).names(), ElementsAre("native", "java"));
  EXPECT_THAT(Listing(2, 151).names(), ElementsAre("other"));
  EXPECT_THAT(Listing(3, 151).names(), IsEmpty());
  EXPECT_THAT(Listing(4294967295U, 151).names(), IsEmpty());
}

TEST_F(Filters, KeepASubcategory) {
  EXPECT_THAT(Listing(100, 1).names(), ElementsAre("other", "java"));
  EXPECT_THAT(Listing(100, 4).names(), ElementsAre("image"));
  EXPECT_THAT(Listing(100, 100).names(), IsEmpty());
}

TEST_F(Filters, KeepACategoryAndASubcategory) {
  EXPECT_THAT(Listing(1, 0).names(), ElementsAre("native"));
  EXPECT_THAT(Listing(0, 1).names(), IsEmpty());
}

TEST_F(Filters, KeepAWholeNameInItsCase) {
  EXPECT_THAT(Listing(100, 151, "java").names(), ElementsAre("java"));
  EXPECT_THAT(Listing(100, 151, "jav").names(), IsEmpty());
  EXPECT_THAT(Listing(100, 151, "java2").names(), IsEmpty());
  EXPECT_THAT(Listing(100, 151, "Java").names(), IsEmpty());
  EXPECT_THAT(Listing(100, 151, "").names(), IsEmpty());
  EXPECT_THAT(Listing(0, 151, "java").names(), IsEmpty());
}

TEST(PackageList, HoldsTheFilesOfAnApplicationThatExist) {
  add_package("alpha");
  write_information("alpha.tqstartapp", "");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.start_app, "/usr/lib/opkg/info/alpha.tqstartapp");
  EXPECT_EQ(package.stop_app, "");
}

TEST(PackageList, IgnoresADirectoryInPlaceOfAFileOfAnApplication) {
  add_package("alpha");
  fs::create_directory("/usr/lib/opkg/info/alpha.tqstartapp");
  write_information("alpha.tqstopapp", "");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.start_app, "");
  EXPECT_EQ(package.stop_app, "/usr/lib/opkg/info/alpha.tqstopapp");
}

TEST(PackageList, ComesFromTheOfflineRootWhenOffline) {
  const std::string offline = "/mnt/root/usr/lib/opkg/info";
  fs::create_directories(offline);
  add_package("online");
  add_package("offline", "Application", "Application_Native", offline);
  write_information("offline.tqstartapp", "", offline);
  write_kernel_command_line("root=/dev/mtdblock5\n");
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  const ListedPackage package = listing.only();
  EXPECT_EQ(package.name, "offline");
  EXPECT_EQ(package.start_app, "/mnt/root/usr/lib/opkg/info/offline.tqstartapp");
}

TEST(PackageList, ComesFromTheFixedDirectoryWhateverTheHostSet) {
  const TempDir elsewhere;
  add_package("elsewhere", "Application", "Application_Native", elsewhere.path());
  add_package("alpha");
  tq_tbx_set_opkg_dir(elsewhere.path().c_str());
  EXPECT_THAT(Listing().names(), ElementsAre("alpha"));
}

TEST(PackageList, TakesValuesOfADosFile) {
  write_information("alpha.control", "Package: alpha\r\nVersion: 1.0\r\nMaintainer: Halvern\r\n");
  write_information("alpha.tqcontrol",
                    "TqPackageCategory: Application\r\nTqPackageSubCategory: Application_Jsp\r\n");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.name, "alpha");
  EXPECT_EQ(package.maintainer, "Halvern");
  EXPECT_EQ(package.type, TQ_CATEGORY_APPLICATION);
  EXPECT_EQ(package.subtype, TQ_SUBCATEGORY_JSP);
}

TEST(PackageList, TakesALastLineWithoutItsEnd) {
  write_information("alpha.control", "Version: 1.0\nPackage: alpha");
  write_information("alpha.tqcontrol", "TqPackageCategory: Image");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.name, "alpha");
  EXPECT_EQ(package.type, TQ_CATEGORY_IMAGE);
}

TEST(PackageList, LeavesOutAControlFileWithoutAPackage) {
  write_information("alpha.control", "Version: 1.0\nMaintainer: Halvern\n");
  write_information("alpha.tqcontrol", "TqPackageCategory: Application\n");
  write_information(".tqcontrol", "TqPackageCategory: Application\n");
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.names(), IsEmpty());
}

TEST(PackageList, ReadsMissingValuesAsEmpty) {
  write_information("alpha.control", "Package: alpha\n");
  write_information("alpha.tqcontrol", "TqPackageCategory: Application\n");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.version, "");
  EXPECT_EQ(package.maintainer, "");
}

TEST(PackageList, ReadsMissingCategoriesAsOther) {
  write_information("alpha.control", "Package: alpha\n");
  write_information("alpha.tqcontrol", "TqDataTarget: /\n");
  const ListedPackage package = Listing().only();
  EXPECT_EQ(package.type, TQ_CATEGORY_OTHER);
  EXPECT_EQ(package.subtype, TQ_SUBCATEGORY_OTHER);
}

}  // namespace
}  // namespace tarvio_test
