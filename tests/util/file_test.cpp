#include "tarvio/file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

#include "support/files.h"
#include "support/hooks/got_hook.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

class Files : public testing::Test {
 protected:
  Files() {
    write_file(file_, "12345");
    fs::create_directory(directory_);
    ::mkfifo(pipe_.c_str(), 0600);
  }

  int32_t exists(const fs::path& path, int (*ask)(const char*, int32_t*)) {
    int32_t flag = 7;
    EXPECT_EQ(ask(path.c_str(), &flag), 0);
    return flag;
  }
  int32_t is_file(const fs::path& path) { return exists(path, tq_file_exist); }
  int32_t is_directory(const fs::path& path) { return exists(path, tq_dir_exist); }

  const TempDir top_;
  const fs::path file_ = top_ / "file";
  const fs::path directory_ = top_ / "directory";
  const fs::path pipe_ = top_ / "pipe";
  const fs::path missing_ = top_ / "missing";
};

TEST_F(Files, ReportWhetherAPathIsARegularFile) {
  EXPECT_EQ(is_file(file_), 1);
  EXPECT_EQ(is_file(directory_), 0);
  EXPECT_EQ(is_file(pipe_), 0);
  EXPECT_EQ(is_file("/dev/null"), 0);
  EXPECT_EQ(is_file(missing_), 0);
  EXPECT_EQ(is_file(file_ / "below"), 0);
  EXPECT_EQ(is_file(""), 0);
}

TEST_F(Files, ReportWhetherAPathIsADirectory) {
  EXPECT_EQ(is_directory(directory_), 1);
  EXPECT_EQ(is_directory(directory_ / "."), 1);
  EXPECT_EQ(is_directory(file_), 0);
  EXPECT_EQ(is_directory(pipe_), 0);
  EXPECT_EQ(is_directory(missing_), 0);
  EXPECT_EQ(is_directory(""), 0);
}

TEST_F(Files, LookThroughSymbolicLinks) {
  fs::create_symlink("file", top_ / "to file");
  fs::create_symlink("directory", top_ / "to directory");
  fs::create_symlink("missing", top_ / "to nothing");
  EXPECT_EQ(is_file(top_ / "to file"), 1);
  EXPECT_EQ(is_directory(top_ / "to directory"), 1);
  EXPECT_EQ(is_file(top_ / "to nothing"), 0);
  EXPECT_EQ(is_directory(top_ / "to nothing"), 0);
}

TEST_F(Files, MayHaveNoPathAndNoFlag) {
  for (int (*ask)(const char*, int32_t*) : {tq_file_exist, tq_dir_exist}) {
    int32_t flag = 7;
    EXPECT_EQ(ask(nullptr, &flag), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(ask(file_.c_str(), nullptr), 0);
  }
}

TEST_F(Files, HaveALength) {
  uint32_t size = 7;
  EXPECT_EQ(tq_get_file_length(file_.c_str(), &size), 0);
  EXPECT_EQ(size, 5U);
  write_file(file_, "");
  EXPECT_EQ(tq_get_file_length(file_.c_str(), &size), 0);
  EXPECT_EQ(size, 0U);
}

TEST_F(Files, KeepTheLow32BitsOfAHugeLength) {
  fs::resize_file(file_, (uintmax_t{1} << 32) + 7);
  uint32_t size = 0;
  EXPECT_EQ(tq_get_file_length(file_.c_str(), &size), 0);
  EXPECT_EQ(size, 7U);
}

TEST_F(Files, WithoutALengthGiveMinusOneAndLeaveTheSizeAlone) {
  uint32_t size = 7;
  EXPECT_EQ(tq_get_file_length(missing_.c_str(), &size), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(tq_get_file_length((file_ / "below").c_str(), &size), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(tq_get_file_length(nullptr, &size), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(size, 7U);
  EXPECT_EQ(tq_get_file_length(file_.c_str(), nullptr), -1);
}

TEST_F(Files, AreDeleted) {
  EXPECT_EQ(tq_file_delete(file_.c_str()), 0);
  EXPECT_FALSE(fs::exists(file_));
}

TEST_F(Files, AreDeletedAsLinksAndNotThroughThem) {
  fs::create_symlink("file", top_ / "link");
  EXPECT_EQ(tq_file_delete((top_ / "link").c_str()), 0);
  EXPECT_TRUE(fs::exists(file_));
}

TEST_F(Files, ThatCannotBeDeletedGiveTheErrorNumber) {
  EXPECT_EQ(tq_file_delete(missing_.c_str()), ENOENT);
  EXPECT_EQ(tq_file_delete(directory_.c_str()), EISDIR);
  EXPECT_EQ(tq_file_delete((file_ / "below").c_str()), ENOTDIR);
  EXPECT_EQ(tq_file_delete(nullptr), EINVAL);
  const Hook hook(
      "unlink", +[](const char*) {
        errno = EROFS;
        return -1;
      });
  EXPECT_EQ(tq_file_delete(file_.c_str()), EROFS);
}

}  // namespace
}  // namespace tarvio_test
