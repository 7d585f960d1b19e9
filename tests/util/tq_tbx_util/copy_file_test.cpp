#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/tbx.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "util/tq_tbx_util";

class CopyFile : public testing::Test {
 protected:
  static std::string bytes(size_t count) {
    std::string text;
    for (size_t n = 0; n < count; ++n) text += static_cast<char>(n * 7 % 251);
    return text;
  }
  static int copy(const std::string& source, const std::string& destination) {
    return tq_copy_file(source.c_str(), destination.c_str());
  }

  const TempDir directory_;
  const std::string source_ = directory_ / "source";
  const std::string copy_ = directory_ / "copy";
};

TEST_F(CopyFile, GivesTheSameBytesForEveryLength) {
  for (const size_t length : {0U, 1U, 1023U, 1024U, 1025U, 4096U, 100000U, 3000000U}) {
    write_file(source_, bytes(length));
    EXPECT_EQ(copy(source_, copy_), 0);
    EXPECT_EQ(read_file(copy_), bytes(length)) << length;
  }
}

TEST_F(CopyFile, LogsNothingWhenItSucceeds) {
  write_file(source_, "text");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(copy(source_, copy_), 0);
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
}

TEST_F(CopyFile, CutsALongerDestination) {
  write_file(source_, "new");
  write_file(copy_, "a longer text of before");
  EXPECT_EQ(copy(source_, copy_), 0);
  EXPECT_EQ(read_file(copy_), "new");
}

TEST_F(CopyFile, GivesTheDefaultModeAndNotThatOfTheSource) {
  write_file(source_, "text");
  fs::permissions(source_, fs::perms{0700});
  const mode_t before = ::umask(027);
  EXPECT_EQ(copy(source_, copy_), 0);
  ::umask(before);
  struct stat info = {};
  ::stat(copy_.c_str(), &info);
  EXPECT_EQ(info.st_mode & 07777U, 0640U);
}

// sendfile, which does most of the work, cannot read these.
TEST_F(CopyFile, TakesAPipe) {
  const std::string pipe = directory_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const pid_t writer = ::fork();
  if (writer == 0) {
    write_file(pipe, bytes(100000));
    ::_exit(0);
  }
  EXPECT_EQ(copy(pipe, copy_), 0);
  EXPECT_EQ(read_file(copy_), bytes(100000));
}

TEST_F(CopyFile, TakesAFileWhoseSizeIsNotKnownBefore) {
  EXPECT_EQ(copy("/proc/self/status", copy_), 0);
  EXPECT_TRUE(read_file(copy_).starts_with("Name:"));
}

TEST_F(CopyFile, IsTheSameWhereTheKernelDoesNotCopy) {
  write_file(source_, bytes(100000));
  for (const int error : {EINVAL, ENOSYS}) {
    Hook sendfile("sendfile", [error](int, int, off64_t*, size_t) -> ssize_t {
      errno = error;
      return -1;
    });
    EXPECT_EQ(copy(source_, copy_), 0);
    EXPECT_EQ(read_file(copy_), bytes(100000));
  }
}

TEST_F(CopyFile, StartsOverWhenTheKernelFails) {
  write_file(source_, bytes(100000));
  bool is_first = true;
  Hook sendfile("sendfile", [&](int to, int from, off64_t* offset, size_t) -> ssize_t {
    if (std::exchange(is_first, false)) return ::sendfile64(to, from, offset, 5000);
    errno = EIO;
    return -1;
  });
  EXPECT_EQ(copy(source_, copy_), 0);
  EXPECT_EQ(read_file(copy_), bytes(100000));
}

TEST_F(CopyFile, WithoutASourceSaysSoAndLeavesTheDestinationAlone) {
  write_file(copy_, "before");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(copy(source_, copy_), ENOENT);
  EXPECT_EQ(read_file(copy_), "before");
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_copy_file: [" + source_ +
                          "] open error - errno=2, No such file or directory "));
}

TEST_F(CopyFile, WithoutADestinationSaysSoAndLeavesTheSourceAlone) {
  write_file(source_, "text");
  const std::string destination = directory_ / "missing" / "copy";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(copy(source_, destination), ENOENT);
  EXPECT_EQ(read_file(source_), "text");
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_copy_file: [" + destination +
                          "] open error - errno=2, No such file or directory "));
  EXPECT_EQ(copy(source_, directory_.path()), EISDIR);
}

TEST_F(CopyFile, ReportsTheFirstWriteThatIsShort) {
  write_file(source_, bytes(100000));
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(copy(source_, "/dev/full"), -1);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_copy_file: [/dev/full] write error - R/W=1024/0 "));
}

// What still waits in the buffer then is not looked at.
TEST_F(CopyFile, DoesNotReportAWriteThatFailsOnlyWhenTheCopyIsClosed) {
  write_file(source_, bytes(100));
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(copy(source_, "/dev/full"), 0);
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
}

// A file system of its own, of a few pages.
class FullFileSystem : public CopyFile {
 protected:
  FullFileSystem() {
    fs::create_directory(place_);
    EXPECT_EQ(::mount("small", place_.c_str(), "tmpfs", 0, "size=16k"), 0);
  }
  ~FullFileSystem() override { ::umount2(place_.c_str(), MNT_DETACH); }

  const std::string place_ = directory_ / "small";
};

TEST_F(FullFileSystem, StopsTheCopyAtItsSize) {
  write_file(source_, bytes(100000));
  EXPECT_EQ(copy(source_, place_ + "/copy"), -1);
  EXPECT_EQ(fs::file_size(place_ + "/copy"), 16384U);
}

TEST_F(FullFileSystem, StopsACopyUnnoticedThatWaitsInTheBuffer) {
  write_file(source_, bytes(100));
  write_file(place_ + "/all", bytes(16384));
  EXPECT_EQ(copy(source_, place_ + "/copy"), 0);
  EXPECT_EQ(fs::file_size(place_ + "/copy"), 0U);
}

// No file may grow beyond this while it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit = {bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_ = {};
  sighandler_t handler_;
};

// The kernel fills the file up to its limit; the rest alone would fit into the buffer.
TEST_F(FullFileSystem, ReportsACopyThatTheKernelCut) {
  write_file(source_, bytes(8200));
  const LogCapture log(TQ_LOG_DEBUG);
  const FileSizeLimit limit(5000);
  EXPECT_EQ(copy(source_, place_ + "/copy"), -1);
  EXPECT_EQ(read_file(place_ + "/copy"), bytes(8200).substr(0, 5000));
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_copy_file: [" + place_ + "/copy] write error - R/W=8/0 "));
}

TEST_F(FullFileSystem, DoesNotReportACopyThatTheKernelCutAndOnlyClosingWouldShow) {
  write_file(source_, bytes(8192));
  const FileSizeLimit limit(5000);
  EXPECT_EQ(copy(source_, place_ + "/copy"), 0);
  EXPECT_EQ(fs::file_size(place_ + "/copy"), 5000U);
}

TEST_F(CopyFile, TakesAReadErrorForTheEndOfTheFile) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(copy(directory_.path(), copy_), 0);  // a directory opens, but cannot be read
  EXPECT_EQ(read_file(copy_), "");
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
}

TEST_F(CopyFile, OpensBothFilesInBinaryModeForThisProcessOnly) {
  write_file(source_, "text");
  std::vector<std::string> modes;
  Hook fopen("fopen", [&](const char* path, const char* mode) {
    modes.emplace_back(mode);
    return std::fopen(path, mode);
  });
  EXPECT_EQ(copy(source_, copy_), 0);
  EXPECT_THAT(modes, ElementsAre("rbe", "wbe"));
}

TEST_F(CopyFile, ClosesBothFiles) {
  write_file(source_, bytes(100000));
  const Descriptors before = open_descriptors();
  copy(source_, copy_);
  copy(source_, "/dev/full");
  copy(source_, directory_.path());
  copy(directory_ / "missing", copy_);
  EXPECT_THAT(opened_since(before), IsEmpty());
}

TEST_F(CopyFile, NeedsBothPaths) {
  write_file(source_, "text");
  EXPECT_EQ(tq_copy_file(nullptr, copy_.c_str()), EINVAL);
  EXPECT_EQ(tq_copy_file(source_.c_str(), nullptr), EINVAL);
  EXPECT_FALSE(fs::exists(copy_));
}

}  // namespace
}  // namespace tarvio_test
