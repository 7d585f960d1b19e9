#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/packages/package_listing.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

// Root may read everything; without its capabilities it is bound by file modes.
class WithoutCapabilities {
 public:
  WithoutCapabilities() {
    call(SYS_capget);
    effective_ = {data_[0].effective, data_[1].effective};
    data_[0].effective = data_[1].effective = 0;
    call(SYS_capset);
  }
  ~WithoutCapabilities() {
    data_[0].effective = effective_[0];
    data_[1].effective = effective_[1];
    call(SYS_capset);
  }
  WithoutCapabilities(const WithoutCapabilities&) = delete;
  WithoutCapabilities& operator=(const WithoutCapabilities&) = delete;

 private:
  void call(long number) {
    if (::syscall(number, &header_, data_) != 0) ADD_FAILURE() << "cannot change capabilities";
  }

  __user_cap_header_struct header_ = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data_[2] = {};
  std::vector<uint32_t> effective_;
};

std::vector<std::string> logged(const LogCapture& log) { return unit_messages(log, kListingUnit); }

TEST(PackageListLog, ReportsEveryStep) {
  add_package("alpha");
  const LogCapture log(TQ_LOG_DEBUG);
  const Listing listing;
  EXPECT_THAT(logged(log),
              ElementsAre("debug: tq_tbx_list: tqlist scandir=/usr/lib/opkg/info ",
                          "debug: tq_tbx_list: control file name=[alpha.control] ",
                          "debug: tq_tbx_list: Read package: [alpha] ",
                          "debug: tq_tbx_list: Target package: [alpha] ",
                          "debug: tq_tbx_list: tqcontrol: [/usr/lib/opkg/info/alpha.tqcontrol] ",
                          "debug: tq_tbx_list: pkg:[alpha], category: [Application], subcategory: "
                          "[Application_Native] ",
                          "debug: type check result 1"));
}

TEST(PackageListLog, ReportsWhereAPackageIsDropped) {
  add_package("filtered", "Image");
  add_package("named");
  write_information("invisible.control", "Package: invisible\n");
  write_information("nameless.control", "Version: 1.0\n");
  fs::create_directory("/usr/lib/opkg/info/directory.control");
  const auto since_name = [](const std::string& name, const char* wanted) {
    const LogCapture log(TQ_LOG_DEBUG);
    const Listing listing(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, wanted);
    std::vector<std::string> messages = logged(log);
    const std::string first = "debug: tq_tbx_list: control file name=[" + name + ".control] ";
    const auto begin = std::find(messages.begin(), messages.end(), first);
    if (begin == messages.end()) return std::vector<std::string>{"never read"};
    const auto end = std::find_if(begin + 1, messages.end(), [](const std::string& message) {
      return message.find("control file name") != std::string::npos;
    });
    return std::vector<std::string>(begin + 1, end);
  };
  EXPECT_THAT(since_name("directory", nullptr), IsEmpty());
  EXPECT_THAT(since_name("nameless", nullptr),
              ElementsAre("debug: tq_tbx_list: Read package: [] "));
  EXPECT_THAT(since_name("named", "other"),
              ElementsAre("debug: tq_tbx_list: Read package: [named] "));
  EXPECT_THAT(
      since_name("invisible", nullptr),
      ElementsAre("debug: tq_tbx_list: Read package: [invisible] ",
                  "debug: tq_tbx_list: Target package: [invisible] ",
                  "debug: tq_tbx_list: tqcontrol: [/usr/lib/opkg/info/invisible.tqcontrol] "));
  EXPECT_EQ(since_name("filtered", nullptr).back(), "debug: type check result 0");
}

TEST(PackageListLog, ReportsTheOfflineDirectory) {
  fs::create_directories("/mnt/root/usr/lib/opkg/info");
  write_kernel_command_line("root=/dev/mtdblock5\n");
  const LogCapture log(TQ_LOG_DEBUG);
  const Listing listing;
  EXPECT_THAT(logged(log),
              ElementsAre("debug: tq_tbx_list: tqlist scandir=/mnt/root/usr/lib/opkg/info "));
}

int cannot_open(const char*, int, ...) {
  errno = EIO;
  return -1;
}

class PackageListFailure : public testing::Test {
 protected:
  // The directory cannot be scanned.
  void expect_scan_error(int error) {
    const LogCapture log(TQ_LOG_DEBUG);
    const Listing listing;
    EXPECT_EQ(listing.result(), error);
    EXPECT_TRUE(listing.untouched());
    EXPECT_THAT(logged(log), ElementsAre("debug: tq_tbx_list: tqlist scandir=/usr/lib/opkg/info ",
                                         "debug: tq_tbx_list: scandir error "));
  }
};

TEST_F(PackageListFailure, IsTheErrorOfAMissingDirectory) {
  fs::remove(kInformation);
  expect_scan_error(ENOENT);
}

TEST_F(PackageListFailure, IsTheErrorOfAFileInItsPlace) {
  fs::remove(kInformation);
  write_file(kInformation, "");
  expect_scan_error(ENOTDIR);
}

TEST_F(PackageListFailure, IsTheErrorOfAnUnreadableDirectory) {
  add_package("alpha");
  fs::permissions(kInformation, fs::perms::none);
  const WithoutCapabilities held_to_modes;
  expect_scan_error(EACCES);
}

TEST_F(PackageListFailure, OutweighsThatOfTheBootTest) {
  fs::remove(kInformation);
  const Hook open("open", &cannot_open);
  expect_scan_error(ENOENT);
}

TEST_F(PackageListFailure, OfTheBootTestIsReturnedWithTheInstalledRootsPackages) {
  fs::create_directories("/mnt/root/usr/lib/opkg/info");
  add_package("offline", "Image", "", "/mnt/root/usr/lib/opkg/info");
  add_package("online");
  write_kernel_command_line("root=/dev/mtdblock5\n");
  const Hook open("open", &cannot_open);
  const Listing listing;
  EXPECT_EQ(listing.result(), EIO);
  EXPECT_THAT(listing.names(), ElementsAre("online"));
}

TEST_F(PackageListFailure, OfTheBootTestIsReturnedWithNoPackages) {
  const Hook open("open", &cannot_open);
  const Listing listing;
  EXPECT_EQ(listing.result(), EIO);
  EXPECT_THAT(listing.names(), IsEmpty());
}

TEST_F(PackageListFailure, IsNoneWhenTheKernelCommandLineIsEmpty) {
  add_package("online");
  write_kernel_command_line("");
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.names(), ElementsAre("online"));
}

TEST_F(PackageListFailure, Is22WithoutAPlaceForTheList) {
  EXPECT_EQ(tq_tbx_list(100, 151, nullptr, nullptr), EINVAL);
}

TEST_F(PackageListFailure, IsNoneForFilesThatCannotBeRead) {
  for (const char* name : {"a", "b", "c"}) add_package(name);
  fs::permissions("/usr/lib/opkg/info/a.control", fs::perms::none);
  fs::permissions("/usr/lib/opkg/info/b.tqcontrol", fs::perms::none);
  const WithoutCapabilities held_to_modes;
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.names(), ElementsAre("c"));
}

TEST_F(PackageListFailure, IsNoneForFilesThatHoldNothingOfUse) {
  add_package("good");
  fs::create_directory("/usr/lib/opkg/info/directory.control");
  fs::create_symlink("/no/such/file", "/usr/lib/opkg/info/dangling.control");
  write_information("empty.control", "");
  write_information("words.control", "Package alpha Version 1.0");
  write_information("binary.control", std::string("\0\xff\x80: \0\n\r\x01", 9));
  write_information("long.control", std::string(1 << 20, 'x'));
  write_information("colons.control", std::string(1 << 16, ':'));
  write_information("emptied.control", "Package: emptied\n");
  write_information("emptied.tqcontrol", "");
  write_information("folded.control", "Package: folded\n");
  fs::create_directory("/usr/lib/opkg/info/folded.tqcontrol");
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.names(), ElementsAre("good"));
}

TEST_F(PackageListFailure, IsNoneForTenThousandPackages) {
  std::vector<std::string> expected;
  for (int i = 19999; i >= 10000; --i) {
    expected.push_back("package" + std::to_string(i));
    add_package(expected.back());
  }
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.names(), ElementsAreArray(expected));
}

TEST_F(PackageListFailure, IsNoneForFileNamesOf255Bytes) {
  write_information(std::string(247, 'f') + ".control", "Package: alpha\n");
  write_information("alpha.tqcontrol", "TqPackageCategory: Image\n");
  const std::string longest(244, 'p');  // the longest that fits a line of the control file
  add_package(longest);
  EXPECT_THAT(Listing().names(), ElementsAre(longest, "alpha"));
}

TEST_F(PackageListFailure, IsNoneForAPackageWhoseFilesCannotExist) {
  write_information("alpha.control", "Package: " + std::string(245, 'p') + "\n");
  write_information("beta.control", "Package: ../../../../etc/../no/such/file\n");
  const Listing listing;
  EXPECT_EQ(listing.result(), 0);
  EXPECT_THAT(listing.names(), IsEmpty());
}

TEST_F(PackageListFailure, LeavesNoDescriptorOpen) {
  add_package("alpha");
  write_information("beta.control", "Package: beta\n");
  const Descriptors before = open_descriptors();
  const Listing listing;
  EXPECT_THAT(opened_since(before), IsEmpty());
}

// Whichever allocation fails, the listing fails with one of two codes and its message, or a file
// counts as unreadable. A leak checker sees whether everything is freed.
TEST_F(PackageListFailure, WithoutMemoryNeverHandsOutAnything) {
  add_package("alpha");
  add_package("beta");
  const std::vector<std::string> path_failed = {"debug: tq_tbx_list: malloc error "};
  const std::vector<std::string> record_failed = {"debug: tq_add_tbx_info: malloc error ",
                                                  "debug: tq_tbx_list: malloc error "};
  std::map<int, int> results;
  for (int n = 1;; ++n) {
    const LogCapture log(TQ_LOG_DEBUG);
    const FailAlloc fail(n);
    const Listing listing;
    if (!fail.happened()) break;
    ++results[listing.result()];
    std::vector<std::string> messages;
    for (const std::string& message : logged(log))
      if (message.find("malloc error") != std::string::npos) messages.push_back(message);
    EXPECT_EQ(listing.untouched(), listing.result() != 0);
    EXPECT_EQ(messages, listing.result() == -1       ? record_failed
                        : listing.result() == ENOMEM ? path_failed
                                                     : std::vector<std::string>());
  }
  // Per package: a record and its five strings; the paths of two control files, the start and the
  // stop file.
  EXPECT_EQ(results[-1], 2 * 6);
  EXPECT_EQ(results[ENOMEM], 2 * 4);
  EXPECT_THAT(results, SizeIs(3U));
}

}  // namespace
}  // namespace tarvio_test
