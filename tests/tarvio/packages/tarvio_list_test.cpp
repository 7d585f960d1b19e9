// tarvio list.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/packages/package_listing.h"
#include "support/programs/tarvio.h"

namespace tarvio_test {
namespace {

using nlohmann::json;

using Names = std::vector<std::string>;

class ClientList : public WithoutPackages {
 protected:
  ClientList() {
    add_package("webserver", "Application", "Application_Java");
    add_package("clock");
    add_package("rootfs", "Image", "");
    add_package("fonts", "Fonts", "Application_Jsp");
    write_information("clock.tqstartapp", "");
    write_information("webserver.tqstopapp", "");
    write_information("invisible.control", "Package: invisible\n");
  }
};

Names names_in(const Ran& run) {
  EXPECT_EQ(run.status, 0) << run.errors;
  Names names;
  for (const json& package : json::parse(run.output)) names.push_back(package["name"]);
  return names;
}

TEST_F(ClientList, IsATableFromAToZ) {
  const Ran run = run_tarvio({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output,
            "NAME       VERSION  CATEGORY     SUBCATEGORY  MAINTAINER\n"
            "clock      1.0      application  native       Halvern\n"
            "fonts      1.0      other        jsp          Halvern\n"
            "rootfs     1.0      image        other        Halvern\n"
            "webserver  1.0      application  java         Halvern\n");
  EXPECT_EQ(run.errors, "");
}

TEST_F(ClientList, IsJsonForScripts) {
  const json packages = json::parse(run_tarvio({"list", "--json"}).output);
  ASSERT_EQ(packages.size(), 4U);
  EXPECT_EQ(packages[0], json({{"name", "clock"},
                               {"version", "1.0"},
                               {"category", "application"},
                               {"category_code", 1},
                               {"subcategory", "native"},
                               {"subcategory_code", 0},
                               {"maintainer", "Halvern"},
                               {"start_file", "/usr/lib/opkg/info/clock.tqstartapp"},
                               {"stop_file", nullptr}}));
  EXPECT_EQ(packages[3]["start_file"], nullptr);
  EXPECT_EQ(packages[3]["stop_file"], "/usr/lib/opkg/info/webserver.tqstopapp");
}

TEST_F(ClientList, CanBeFiltered) {
  EXPECT_EQ(names_in(run_tarvio({"list", "--json", "--category", "APPLICATION"})),
            (Names{"clock", "webserver"}));
  EXPECT_EQ(names_in(run_tarvio({"list", "--json", "--category", "0"})), Names{"rootfs"});
  EXPECT_EQ(names_in(run_tarvio({"list", "--json", "--subcategory", "jsp"})), Names{"fonts"});
  EXPECT_EQ(
      names_in(run_tarvio({"list", "--json", "--category", "application", "--subcategory", "1"})),
      Names{"webserver"});
  EXPECT_EQ(names_in(run_tarvio({"list", "--json", "--name", "clock"})), Names{"clock"});
}

TEST_F(ClientList, NeedsTheExactName) {
  const Ran run = run_tarvio({"list", "--name", "web"});
  EXPECT_EQ(run.status, 12);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: no such packages\n");
  const Ran scripted = run_tarvio({"list", "--json", "--name", ""});
  EXPECT_EQ(scripted.status, 12);
  EXPECT_EQ(scripted.output, "[]\n");
  EXPECT_EQ(run_tarvio({"list", "--name", "clock", "--category", "image"}).status, 12);
  EXPECT_EQ(run_tarvio({"list", "--category", "image", "--subcategory", "jsp"}).status, 0);
}

using ClientListOfNothing = WithoutPackages;

TEST_F(ClientListOfNothing, SaysSo) {
  const Ran run = run_tarvio({"list"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: no packages\n");
  EXPECT_EQ(run_tarvio({"list", "--json"}).output, "[]\n");
}

// The library passes over such files, and the listing would lack a package.
TEST_F(ClientList, IsNotShortenedByAFileThatCannotBeRead) {
  for (const std::string file : {"clock.tqcontrol", "clock.control"}) {
    const std::filesystem::path path = std::filesystem::path(kInformation) / file;
    std::filesystem::remove(path);
    std::filesystem::create_symlink(file, path);
    const Ran run = run_tarvio({"list"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "tarvio: cannot list the packages: '" + path.string() +
                              "': cannot read: Too many levels of symbolic links (40)\n");
    EXPECT_EQ(run_tarvio({"list", "--name", "clock"}).status, 1);
  }
}

TEST_F(ClientList, LeavesOutAPackageWhoseControlFileHasNoKeys) {
  write_information("clock.tqcontrol", "no keys\n");
  write_information("fonts.control", "");
  EXPECT_EQ(names_in(run_tarvio({"list", "--json"})), (Names{"rootfs", "webserver"}));
}

using ClientListThatFails = WithoutPackages;

TEST_F(ClientListThatFails, SaysWhy) {
  ASSERT_TRUE(std::filesystem::remove(kInformation));
  const Ran run = run_tarvio({"list", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, "tarvio: cannot list the packages: No such file or directory (2)\n");
}

}  // namespace
}  // namespace tarvio_test
