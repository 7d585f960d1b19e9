// The rules for the control files of a package.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "packages/control_fields.h"
#include "process/failure.h"

namespace client {
namespace {

// What a Failure says; empty when there was none.
template <typename Work>
std::string complaint_of(Work work) {
  try {
    work();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "";
}

struct Wrong {
  std::string text;
  std::string complaint;
};

TEST(ClientControlFile, IsKeysAndValues) {
  const std::vector<Field> fields = parse_control_file(
      "Package: clock\nTqPackageCategory:  Image\nDescription: shows\n the: time\n");
  ASSERT_EQ(fields.size(), 3U);
  EXPECT_EQ(value_of(fields, "Package"), "clock");
  EXPECT_EQ(value_of(fields, "TqPackageCategory"), "Image");
  EXPECT_EQ(value_of(fields, "Description"), "shows");
  EXPECT_EQ(value_of(fields, "package"), "");
}

TEST(ClientControlFile, NamesTheLineThatIsWrong) {
  const std::vector<Wrong> cases = {
      {"Package: clock", "line 1 has no line end"},
      {"Package: clock\n\nVersion: 1\n", "line 2 is empty"},
      {"Package: clock\r\n", "line 1 contains a control character"},
      {std::string("Package: \0\n", 11), "line 1 contains a control character"},
      {"Package: \x1b[2J\n", "line 1 contains a control character"},
      {" Package: clock\n", "line 1 is a continuation line without a key before it"},
      {"Package: clock\nVersion\n", "line 2 is not 'KEY: VALUE'"},
      {": clock\n", "line 1 is not 'KEY: VALUE'"},
      {"Pack age: clock\n", "line 1 is not 'KEY: VALUE'"},
      {"Package:clock\n", "line 1 needs a space after the colon"},
      {"Package:\tclock\n", "line 1 needs a space after the colon"},
  };
  for (const Wrong& each : cases) {
    EXPECT_EQ(complaint_of([&] { parse_control_file(each.text); }), each.complaint);
  }
}

std::string complaint_of_control(const std::string& text, bool is_image = false) {
  return complaint_of([&] { check_control(parse_control_file(text), is_image); });
}

TEST(ClientControlFile, OfOpkgNeedsItsKeys) {
  EXPECT_EQ(complaint_of_control(
                "Package: clock\nVersion: 1.0-r2~b+3\nMaintainer: A B\nArchitecture: all\n"),
            "");
  const std::vector<Wrong> cases = {
      {"", "Package is missing"},
      {"Package: \nVersion: 1\n", "Package is missing"},
      {"Package: a\n", "Version is missing"},
      {"Package: a\nVersion: 1\n", "Maintainer is missing"},
      {"Package: a\nVersion: 1\nMaintainer: b\n", "Architecture is missing"},
      {"Package: a\nVersion: 1\nVersion: 2\n", "duplicate key Version"},
  };
  for (const Wrong& each : cases) EXPECT_EQ(complaint_of_control(each.text), each.complaint);
}

TEST(ClientControlFile, OfAnImageNeedsNoArchitecture) {
  EXPECT_EQ(complaint_of_control("Package: a\nVersion: 1\nMaintainer: b\n", true), "");
}

TEST(ClientControlFile, RefusesNamesAndVersionsThatWouldBeReadOtherwise) {
  for (const char* name : {"a b", "-a", ".a", "a;b", "a/b", "../a", "Ä", "a:b", "$(a)", "a*"}) {
    EXPECT_FALSE(is_package_name(name)) << name;
    EXPECT_EQ(
        complaint_of_control("Package: " + std::string(name) + "\n"),
        "Package '" + std::string(name) +
            "' must start with a letter or digit and contain only letters, digits and + - . _ "
            "(at most 244)");
  }
  for (const char* version : {"1:2.0", "1 2", "-1", "1/2", "~1"}) {
    EXPECT_EQ(
        complaint_of_control("Package: a\nVersion: " + std::string(version) + "\n"),
        "Version '" + std::string(version) +
            "' must start with a letter or digit and contain only letters, digits and + - . _ "
            "~");
  }
  EXPECT_TRUE(is_package_name("libStdc++6.0-dev_x"));
  EXPECT_TRUE(is_package_name(std::string(244, 'a')));
  EXPECT_FALSE(is_package_name(std::string(245, 'a')));
  EXPECT_FALSE(is_package_name(""));
}

std::string complaint_of_tqcontrol(const std::string& text) {
  return complaint_of([&] { check_tqcontrol(parse_control_file(text)); });
}

TEST(ClientTqControlFile, KnowsItsWords) {
  for (const char* text :
       {"TqPackageCategory: Application\nTqPackageSubCategory: Application_Jsp\n",
        "TqPackageCategory: Image\nTqPackageSubCategory: Image_All\nTqDataTarget: kernel\n"
        "TqDataTarget: hibernation\n",
        "TqPackageCategory: Fonts\nTqPackageSubCategory: Serif\n"}) {
    EXPECT_EQ(complaint_of_tqcontrol(text), "");
  }
  const std::vector<Wrong> cases = {
      {"", "TqPackageCategory is missing"},
      {"TqPackageCategory: Image\n", "TqPackageSubCategory is missing"},
      {"TqPackageCategory: Image\nTqPackageSubCategory: Image_Boot\n",
       "TqPackageSubCategory 'Image_Boot' is not an Image subcategory (use Image_Other, ...)"},
      {"TqPackageCategory: Application\nTqPackageSubCategory: Image_All\n",
       "TqPackageSubCategory 'Image_All' is not an Application subcategory (use "
       "Application_Native, ...)"},
      {"TqPackageCategory: application\nTqPackageSubCategory: Application_Jsp\n",
       "TqPackageCategory 'application' must be spelled 'Application'"},
      {"TqPackageCategory: My fonts\nTqPackageSubCategory: Serif\n",
       "TqPackageCategory and TqPackageSubCategory must be one word each"},
      {"TqPackageCategory: Image\nTqPackageCategory: Image\n", "duplicate key TqPackageCategory"},
      {"Package: a\n", "unknown key 'Package'"},
      {"TqPackageCategory: Application\nTqPackageSubCategory: Application_Jsp\nTqDataTarget: "
       "kernel\n",
       "TqDataTarget is only for images"},
      {"TqPackageCategory: Image\nTqPackageSubCategory: Image_All\nTqDataTarget: kernel2\n",
       "TqDataTarget: unknown flash area 'kernel2'"},
  };
  for (const Wrong& each : cases) EXPECT_EQ(complaint_of_tqcontrol(each.text), each.complaint);
}

}  // namespace
}  // namespace client
