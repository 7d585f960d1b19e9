// Who may connect to tarviod.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarviod.h"
#include "support/users.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

const std::string kNewDirectory = TQ_COM_SOCKET_PATH ".new";

struct stat info_of(const std::string& path) {
  struct stat info = {};
  EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
  return info;
}

mode_t mode_of(const std::string& path) { return info_of(path).st_mode & 07777; }

TEST(TarviodSocket, IsOpenToEverybodyByDefault) {
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(mode_of(TQ_COM_SOCKET_PATH), 0666U);
  EXPECT_EQ(info_of(TQ_COM_SOCKET_PATH).st_gid, ::getgid());
  EXPECT_FALSE(fs::exists(kNewDirectory));
}

TEST(TarviodSocket, HasTheModeAndTheGroupOfTheCommandLine) {
  if (!has_other_users()) GTEST_SKIP() << "there is no other group in this sandbox";
  Tarviod manager({"--socket-mode", "0660", "--socket-group", "daemon"});
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(mode_of(TQ_COM_SOCKET_PATH), 0660U);
  EXPECT_EQ(info_of(TQ_COM_SOCKET_PATH).st_gid, 1U);
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "22\n\n");
  EXPECT_FALSE(fs::exists(kNewDirectory));
}

TEST(TarviodSocket, HasAGroupWithoutAName) {
  if (!has_other_users()) GTEST_SKIP() << "there is no other group in this sandbox";
  Tarviod manager({"--socket-group", "4242"});
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(info_of(TQ_COM_SOCKET_PATH).st_gid, 4242U);
}

TEST(TarviodSocket, IsClosedToOthersBeforeItIsInPlace) {
  const TempDir directory;
  const std::string go = directory / "go";
  Tarviod manager({"--socket-mode", "600"}, [&] {
    with_module(TARVIOD_HELD_RENAME, go)();
    ::setenv("TARVIO_TEST_RENAMED", TQ_COM_SOCKET_PATH, 1);
  });
  const std::string socket = kNewDirectory + "/ipcom";
  ASSERT_TRUE(eventually([&] { return fs::exists(socket) && mode_of(socket) == 0600; }));
  EXPECT_EQ(mode_of(kNewDirectory), 0700U);
  EXPECT_FALSE(fs::exists(TQ_COM_SOCKET_PATH));
  write_file(go, "");
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(mode_of(TQ_COM_SOCKET_PATH), 0600U);
  EXPECT_FALSE(fs::exists(kNewDirectory));
}

TEST(TarviodSocket, ReplacesWhatAManagerThatWasKilledHasLeft) {
  fs::create_directory(kNewDirectory);
  listen_on(kNewDirectory + "/ipcom").close();
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_FALSE(fs::exists(kNewDirectory));
}

TEST(TarviodSocket, ReplacesAFileInPlaceOfItsFirstDirectory) {
  write_file(kNewDirectory, "");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_FALSE(fs::exists(kNewDirectory));
}

TEST(TarviodSocket, NeedsAGroupThatExists) {
  const Ended run = run_tarviod({"--socket-group", "nobody-has-it"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors,
            "tarviod: socket group 'nobody-has-it': no such group: create it, or name another "
            "one\n");
  EXPECT_FALSE(fs::exists(TQ_COM_SOCKET_PATH));
}

}  // namespace
}  // namespace tarvio_test
