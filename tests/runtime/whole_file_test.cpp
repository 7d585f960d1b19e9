// Files that a reader always finds whole.
#include "runtime/whole_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "support/files.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

mode_t mode_of(const fs::path& path) {
  struct stat info = {};
  EXPECT_EQ(stat(path.c_str(), &info), 0);
  return info.st_mode & 07777;
}

TEST(WholeFile, ReplacesWhatWasThere) {
  const TempDir directory;
  const fs::path file = directory / "state";
  write_file(file, "before");
  EXPECT_TRUE(runtime::write_whole_file(file.c_str(), "after", 0640));
  EXPECT_EQ(read_file(file), "after");
  EXPECT_EQ(mode_of(file), 0640U);
}

TEST(WholeFile, ReplacesALinkInsteadOfWhatItLeadsTo) {
  const TempDir directory;
  write_file(directory / "victim", "kept");
  fs::create_symlink(directory / "victim", directory / "state");
  EXPECT_TRUE(runtime::write_whole_file((directory / "state").c_str(), "new", 0600));
  EXPECT_EQ(read_file(directory / "victim"), "kept");
  EXPECT_EQ(read_file(directory / "state"), "new");
}

TEST(WholeFile, LeavesWhatWasThereWhenItCannotBeWritten) {
  const TempDir directory;
  const fs::path file = directory / "state";
  write_file(file, "before");
  fs::create_directories(directory / "state.new/full");
  EXPECT_FALSE(runtime::write_whole_file(file.c_str(), "after", 0600));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(read_file(file), "before");
}

TEST(WholeFile, IsWrittenWhateverIsInItsWay) {
  const TempDir directory;
  const fs::path file = directory / "state";
  const fs::path temporary = directory / "state.new";
  fs::create_directory(temporary);
  EXPECT_TRUE(runtime::write_whole_file(file.c_str(), "one", 0600));
  ASSERT_EQ(mkfifo(temporary.c_str(), 0600), 0);
  EXPECT_TRUE(runtime::write_whole_file(file.c_str(), "two", 0600));
  EXPECT_EQ(read_file(file), "two");
}

TEST(WholeFile, LeavesNothingBehind) {
  const TempDir directory;
  const fs::path target = directory / "state";
  fs::create_directories(target / "full");
  EXPECT_FALSE(runtime::write_whole_file(target.c_str(), "x", 0600));
  EXPECT_FALSE(fs::exists(directory / "state.new"));
}

TEST(WholeFile, RefusesAPathThatIsTooLong) {
  const std::string path(5000, 'x');
  EXPECT_FALSE(runtime::write_whole_file(path.c_str(), "x", 0600));
  EXPECT_EQ(errno, ENAMETOOLONG);
}

}  // namespace
}  // namespace tarvio_test
