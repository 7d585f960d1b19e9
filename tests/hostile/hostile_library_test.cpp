// The library's calls on hostile package files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "hostile_packages.h"
#include "support/children.h"
#include "support/files.h"
#include "support/flash/flash_device.h"
#include "support/packages/opkg_tool.h"
#include "support/string_list.h"
#include "support/work_directory.h"
#include "tarvio/archive.h"
#include "tarvio/backup.h"
#include "tarvio/conf.h"
#include "tarvio/package.h"
#include "tarvio/tbx.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

// Long enough for the bombs on a busy machine.
constexpr unsigned kPatienceSeconds = 100;

// The current directory holds what is unpacked, and app.tbx. What the calls return is their own
// affair: they return.
void call_all(bool restores) {
  (void)tq_tbx_check_file_size("app.tbx");
  {
    const StringList targets;
    int32_t type = 0;
    (void)tq_tbx_get_package_type("app.tbx", &type, targets.get());
  }
  (void)tq_extract_from_ar("app.tbx", "control.tar.gz");
  (void)tq_extract_from_tgz("control.tar.gz", "./control");
  if (tq_conf* const conf = tq_conf_open("control"); conf != nullptr) {
    (void)tq_conf_read(conf, "Package");
    tq_conf_close(conf);
  }
  (void)tq_tbx_install("app.tbx", 0);
  (void)tq_extract_from_tgz("control.tar.gz", nullptr);
  (void)tq_extract_from_ar("app.tbx", nullptr);
  if (restores) (void)tq_tbx_restore("app.tbx", ".");
}

class HostileLibrary : public testing::TestWithParam<int> {
 protected:
  HostileLibrary() {
    device_.make_area("/dev/mtd1", 2, "boot loader ");
    device_.make_area("/dev/mtd3", 16, "kernel ");
  }

  // In a process of its own, on a file system that what is unpacked may fill.
  void try_on(const std::string& file) const {
    // Each line of its 30,000 is one more area to restore, by contract.
    const bool restores = file.find("image-targets") == std::string::npos;
    ASSERT_EQ(::mount("tmpfs", place_.path().c_str(), "tmpfs", 0, "size=32m"), 0);
    fs::create_directories(place_ / "inner/work");
    fs::copy_file(file, place_ / "inner/work/app.tbx");
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(kPatienceSeconds);
      fs::current_path(place_ / "inner/work");
      call_all(restores);
      ::_exit(0);
    }
    EXPECT_EQ(exit_status_of(child), 0) << file;
    EXPECT_EQ(names_in(place_.path()), std::vector<std::string>({"inner"})) << file;
    EXPECT_EQ(names_in(place_ / "inner"), std::vector<std::string>({"work"})) << file;
    ASSERT_EQ(::umount2(place_.path().c_str(), MNT_DETACH), 0);
  }

  const TempDir place_;
  const FlashDevice device_;
  const OpkgTool opkg_;
};

TEST_P(HostileLibrary, ReturnsAndWritesNothingElsewhere) {
  const std::string path = std::getenv("PATH");
  const std::vector<std::string> own = {path.substr(0, path.find(':'))};
  const Surroundings before = surroundings(own);
  const Redirect quiet(STDERR_FILENO, "/dev/null");
  for (const HostilePackage& package : hostile_packages(GetParam())) try_on(package.file);
  EXPECT_EQ(changes(before, surroundings(own)), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Part, HostileLibrary, testing::Range(0, kParts));

}  // namespace
}  // namespace tarvio_test
