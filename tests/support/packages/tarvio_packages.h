// Directories that package files are made from, and package files made by hand.
#ifndef TARVIO_TESTS_SUPPORT_PACKAGES_TARVIO_PACKAGES_H
#define TARVIO_TESTS_SUPPORT_PACKAGES_TARVIO_PACKAGES_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"

namespace tarvio_test {

// Runs a line under the shell in a directory.
inline void shell(const std::filesystem::path& directory, const std::string& line) {
  const std::string command = "cd '" + directory.string() + "' && { " + line + "\n} 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

// A PATH of the tools that packages and the flash memory need, but for one.
class PathWithout {
 public:
  explicit PathWithout(const std::string& missing) {
    // The last one runs the client where it is emulated.
    for (const std::string name :
         {"sh", "ar", "tar", "gzip", "cat", "flash_erase", "flash_eraseall", "nanddump",
          "nandwrite", "mkfs.jffs2", "qemu-arm"}) {
      const std::string line =
          "tool=$(PATH=$PATH:/usr/sbin command -v " + name + ") && ln -s $tool .; true";
      if (name != missing) shell(directory_.path(), line);
    }
    ::setenv("PATH", directory_.path().c_str(), 1);
  }
  ~PathWithout() { ::setenv("PATH", before_.c_str(), 1); }
  PathWithout(const PathWithout&) = delete;
  PathWithout& operator=(const PathWithout&) = delete;

 private:
  const std::string before_ = ::getenv("PATH");
  const TempDir directory_;
};

// The temporary directory of the programs that a test runs: shows what they leave behind.
class PrivateTemporaryDirectory {
 public:
  PrivateTemporaryDirectory() { ::setenv("TMPDIR", directory_.path().c_str(), 1); }
  ~PrivateTemporaryDirectory() { ::setenv("TMPDIR", before_.c_str(), 1); }
  PrivateTemporaryDirectory(const PrivateTemporaryDirectory&) = delete;
  PrivateTemporaryDirectory& operator=(const PrivateTemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return directory_.path(); }
  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path()))
      names.push_back(entry.path().filename());
    return names;
  }

 private:
  const std::string before_ = std::filesystem::temp_directory_path();
  const TempDir directory_;
};

inline constexpr char kSampleControl[] =
    "Package: clock\nVersion: 1.0\nArchitecture: all\nMaintainer: Halvern Corporation\n";
inline constexpr char kSampleTqControl[] =
    "TqPackageCategory: Application\nTqPackageSubCategory: Application_Native\n";
inline constexpr char kImageTqControl[] =
    "TqPackageCategory: Image\nTqPackageSubCategory: Image_Other\n"
    "TqDataTarget: kernel\nTqDataTarget: rootfs\n";

// A directory "clock" that can be packed.
class SampleDirectory {
 public:
  SampleDirectory() {
    std::filesystem::create_directories(*this / "data/opt/clock");
    write("control", kSampleControl);
    write("tqcontrol", kSampleTqControl);
    write("data/opt/clock/face", "12\n");
    write_program(*this / "tqstartapp", "#!/bin/sh\n");
  }

  std::string path() const { return place_ / "clock"; }
  std::filesystem::path operator/(std::string_view name) const {
    return place_.path() / "clock" / name;
  }
  // Beside the directory.
  std::filesystem::path beside(std::string_view name) const { return place_ / name; }
  void write(std::string_view name, std::string_view content) const {
    write_file(*this / name, content);
  }

 private:
  const TempDir place_;
};

// A package file put together with the tools themselves, from control files as they are given.
class HandMadePackage {
 public:
  explicit HandMadePackage(const std::string& control = kSampleControl,
                           const std::string& tqcontrol = kSampleTqControl) {
    write_file(directory_ / "control", control);
    write_file(directory_ / "tqcontrol", tqcontrol);
    write_file(directory_ / "debian-binary", "2.0\n");
    std::filesystem::create_directory(directory_ / "data");
    write_file(directory_ / "data/face", std::string(3000, '1'));
    shell("tar czf control.tar.gz ./control ./tqcontrol");
    shell("tar czf data.tar.gz -C data .");
    build();
  }

  void shell(const std::string& line) const { tarvio_test::shell(directory_.path(), line); }
  // With the archives as they are now.
  void build() const { shell("rm -f clock.tbx; ar rc clock.tbx debian-binary *.tar.gz"); }
  std::string path() const { return directory_ / "clock.tbx"; }
  std::filesystem::path operator/(std::string_view name) const { return directory_ / name; }

 private:
  const TempDir directory_;
};

}  // namespace tarvio_test

#endif
