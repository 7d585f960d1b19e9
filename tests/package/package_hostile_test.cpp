// Package files that are malicious, or truncated in a transfer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "support/children.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/packages/stand_in_opkg.h"
#include "support/string_list.h"
#include "support/work_directory.h"
#include "tarvio/package.h"
#include "tarvio/tbx.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kAbsolute[] = "/run/tarvio-hostile";
constexpr size_t kBlock = 512;

// A member of an ar archive, with its name exactly as given in the header.
std::string ar_member(const std::string& name, const std::string& content) {
  char header[61];
  snprintf(header, sizeof header, "%-16s%-12d%-6d%-6d%-8o%-10zu`\n", name.c_str(), 0, 0, 0,
           0100644U, content.size());
  return header + content + (content.size() % 2 == 0 ? "" : "\n");
}

std::string tar_member(const std::string& name, const std::string& content, char type = '0',
                       const std::string& target = "") {
  std::string header(kBlock, '\0');
  const auto put = [&](size_t at, const std::string& text) {
    header.replace(at, text.size(), text);
  };
  char size[12];
  snprintf(size, sizeof size, "%011zo", content.size());
  put(0, name);
  put(100, "0000644");
  put(108, "0000000");
  put(116, "0000000");
  put(124, size);
  put(136, "00000000000");
  put(148, "        ");
  put(156, std::string(1, type));
  put(157, target);
  put(257, std::string("ustar\0"
                       "00",
                       8));
  unsigned sum = 0;
  for (const char byte : header) sum += static_cast<unsigned char>(byte);
  char checksum[8];
  snprintf(checksum, sizeof checksum, "%06o", sum);
  put(148, checksum);
  const size_t padding = (kBlock - content.size() % kBlock) % kBlock;
  return header + content + std::string(padding, '\0');
}

std::string gzip(const std::string& tar) {
  write_file("to-zip", tar + std::string(2 * kBlock, '\0'));
  EXPECT_EQ(std::system("gzip -1 -n to-zip"), 0);
  std::string zipped = read_file("to-zip.gz");
  fs::remove("to-zip.gz");
  return zipped;
}

std::string random_bytes(size_t count) {
  std::mt19937 engine(20260101);
  std::string bytes;
  for (size_t n = 0; n < count; ++n) bytes += static_cast<char>(engine());
  return bytes;
}

constexpr char kTqControl[] = "TqPackageCategory: Application\nTqDataTarget: a\n";

// The work directory lies in a directory of its own, which must not change.
class Hostile : public testing::Test {
 protected:
  Hostile() : quiet_(STDERR_FILENO, "/dev/null") {
    fs::create_directories("inner/work");
    fs::current_path("inner/work");
    use_stand_in_opkg();
  }
  ~Hostile() override { fs::current_path("../.."); }

  static std::string package(const std::string& control, const std::string& data) {
    return "!<arch>\n" + ar_member("debian-binary/", "2.0\n") +
           ar_member("control.tar.gz/", control) + ar_member("data.tar.gz/", data);
  }

  struct Asked {
    int size = 0;
    int type_result = 0;
    int32_t type = -7;
    std::vector<std::string> targets;
  };
  // Asks the library everything about app.tbx. Only the file is left, and nothing around the work
  // directory changes.
  Asked ask() const {
    const Descriptors descriptors = open_descriptors();
    Asked asked;
    asked.size = tq_tbx_check_file_size("app.tbx");
    expect_alone({});
    const StringList targets;
    asked.type_result = tq_tbx_get_package_type("app.tbx", &asked.type, targets.get());
    asked.targets = targets.texts();
    // A failed detection may leave what it has unpacked.
    fs::remove("control.tar.gz");
    fs::remove("tqcontrol");
    expect_alone({});
    EXPECT_THAT(opened_since(descriptors), IsEmpty());
    return asked;
  }
  void expect_alone(std::vector<std::string> others) const {
    others.emplace_back("app.tbx");
    EXPECT_THAT(names_in("."), testing::UnorderedElementsAreArray(others));
    EXPECT_THAT(names_in("../.."), ElementsAre("inner"));
    EXPECT_THAT(names_in(".."), ElementsAre("work"));
    EXPECT_FALSE(fs::exists(kAbsolute));
  }

  const WorkDirectory top_;
  const Redirect quiet_;  // the tools complain on standard error
};

TEST_F(Hostile, TruncatedAnywhereDoesNoHarm) {
  const std::string control = gzip(tar_member("./control", "Package: app\nVersion: 1\n") +
                                   tar_member("./tqcontrol", kTqControl));
  const std::string whole =
      package(control, gzip(tar_member("./opt/app/data", random_bytes(9000))));
  for (size_t length = 0; length < whole.size(); length += kBlock) {
    write_file("app.tbx", whole.substr(0, length));
    const Asked asked = ask();
    EXPECT_THAT(asked.type_result, AnyOf(0, ENOENT)) << length;
    EXPECT_THAT(asked.type, AnyOf(-7, 2)) << length;
    const int installed = tq_tbx_install("app.tbx", 0);
    EXPECT_THAT(installed, AnyOf(0, 10301, 10305)) << length;
    expect_alone({});
  }
  write_file("app.tbx", whole);
  EXPECT_EQ(ask().type, 2);
}

TEST_F(Hostile, ControlArchiveTruncatedAnywhereDoesNoHarm) {
  const std::string control =
      gzip(tar_member("./control", random_bytes(3000)) + tar_member("./tqcontrol", kTqControl));
  for (size_t length = 0; length < control.size(); length += kBlock) {
    write_file("app.tbx", package(control.substr(0, length), ""));
    const Asked asked = ask();
    EXPECT_THAT(asked.type_result, AnyOf(0, ENOENT)) << length;
  }
}

// The tool unpacks all members, by contract, but none outside the work directory.
TEST_F(Hostile, MemberNamesThatPointElsewhereStayInTheWorkDirectory) {
  const std::string names =
      "../../x/\n/run/tarvio-hostile/\n../../../../../../run/tarvio-hostile/\n";
  const std::string table = ar_member("//", names);
  const std::string contents[] = {
      ar_member("../../x", "x"),    ar_member("/run/x", "x"),      table + ar_member("/0", "x"),
      table + ar_member("/9", "x"), table + ar_member("/30", "x"),
  };
  for (const std::string& content : contents) {
    write_file("app.tbx", "!<arch>\n" + content + ar_member("control.tar.gz/", ""));
    tq_tbx_check_file_size("app.tbx");
    for (const char* unpacked : {"x", "tarvio-hostile", "..", "run"}) {
      if (fs::is_regular_file(unpacked)) fs::remove(unpacked);
    }
    const StringList targets;
    int32_t type = 0;
    EXPECT_EQ(tq_tbx_get_package_type("app.tbx", &type, targets.get()), ENOENT);
    fs::remove("control.tar.gz");
    expect_alone({});
  }
  EXPECT_FALSE(fs::exists("/run/x"));
}

TEST_F(Hostile, InnerMemberNamesThatPointElsewhereAreOnlyListed) {
  const std::string away =
      tar_member("../../x", "1234567890") + tar_member(kAbsolute, "1234567890") +
      tar_member("./link", "", '2', "/run") + tar_member("./link/tarvio-hostile", "1234567890");
  write_file("app.tbx", package(gzip(away + tar_member("./tqcontrol", kTqControl)), gzip(away)));
  const Asked asked = ask();
  EXPECT_EQ(asked.type_result, 0);
  EXPECT_EQ(asked.type, 2);
  EXPECT_THAT(asked.targets, ElementsAre("TqDataTarget: a\n"));
}

TEST_F(Hostile, TqcontrolThatIsALinkIsFollowedToARegularFileOnly) {
  write_file("app.tbx", package(gzip(tar_member("./tqcontrol", "", '2', "/dev/zero")), ""));
  EXPECT_EQ(ask().type_result, ENOENT);
  write_file("app.tbx", package(gzip(tar_member("./tqcontrol", "", '6')), ""));  // a pipe
  EXPECT_EQ(ask().type_result, ENOENT);
  write_file("app.tbx", package(gzip(tar_member("./tqcontrol", "", '2', "/etc/passwd")), ""));
  const Asked asked = ask();
  EXPECT_EQ(asked.type_result, 0);
  EXPECT_THAT(asked.targets, IsEmpty());
  EXPECT_TRUE(fs::exists("/etc/passwd"));
}

TEST_F(Hostile, TqcontrolOfBinaryBytesHasNoTargets) {
  write_file("app.tbx", package(gzip(tar_member("./tqcontrol", random_bytes(100000))), ""));
  const Asked asked = ask();
  EXPECT_EQ(asked.type_result, 0);
  EXPECT_THAT(asked.targets, IsEmpty());
}

TEST_F(Hostile, TqcontrolWithZeroBytesIsReadUpToThemInEachLine) {
  const std::string bytes("TqDataTarget: a\0b\nTqDataTarget: \0\n\0TqDataTarget: c\n", 52);
  write_file("app.tbx", package(gzip(tar_member("./tqcontrol", bytes)), ""));
  EXPECT_THAT(ask().targets, ElementsAre("TqDataTarget: a", "TqDataTarget: "));
}

TEST_F(Hostile, ManyMembersAreCountedAndSearched) {
  std::string many;
  for (int n = 0; n < 100000; ++n)
    many += tar_member("./" + std::to_string(n), n % 2 == 0 ? "" : "x");
  const std::string archive = gzip(many + tar_member("./tqcontrol", kTqControl));
  write_file("app.tbx", package(archive, archive));
  const Tool df("df", "echo heading; echo a 1 1 98 1% /");
  const Asked asked = ask();
  EXPECT_EQ(asked.size, 0);  // 2 * 50,047 bytes in 98 KiB
  EXPECT_EQ(asked.type_result, 0);
  const Tool less("df", "echo heading; echo a 1 1 97 1% /");
  EXPECT_EQ(tq_tbx_check_file_size("app.tbx"), -1);
}

TEST_F(Hostile, ManyOuterMembersAreSearched) {
  std::string package_file = "!<arch>\n";
  for (int n = 0; n < 100000; ++n) package_file += ar_member(std::to_string(n) + "/", "");
  package_file += ar_member("control.tar.gz/", gzip(tar_member("./tqcontrol", kTqControl)));
  write_file("app.tbx", package_file);
  const StringList targets;
  int32_t type = 0;
  EXPECT_EQ(tq_tbx_get_package_type("app.tbx", &type, targets.get()), 0);
  EXPECT_EQ(type, 2);
  expect_alone({});
}

// 2 GiB are one byte more than a signed 32-bit number holds.
TEST_F(Hostile, SparseMemberOf2GiBDoesNotFit) {
  fs::create_directory("build");
  EXPECT_EQ(std::system("cd build && truncate -s 2G big && tar --sparse -czf data.tar.gz ./big && "
                        "tar -czf control.tar.gz -T /dev/null && "
                        "ar rc ../app.tbx control.tar.gz data.tar.gz"),
            0);
  fs::remove_all("build");
  const Tool df("df", "echo heading; echo a 1 1 2097151 1% /");
  const Asked asked = ask();
  EXPECT_EQ(asked.size, -1);
  EXPECT_EQ(asked.type_result, ENOENT);
}

TEST_F(Hostile, FalseSizesDoNoHarm) {
  std::string lying = "!<arch>\n" + ar_member("control.tar.gz/", "x");
  lying.replace(8 + 48, 10, "4294967295");
  write_file("app.tbx", lying);
  EXPECT_NE(ask().size, 0);
  lying.replace(8 + 48, 10, "-1        ");
  write_file("app.tbx", lying);
  ask();
}

}  // namespace
}  // namespace tarvio_test
