// The file of states and figures.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "managed.h"
#include "runtime/run_paths.h"
#include "runtime/state_file.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/programs/written_state.h"
#include "support/users.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using runtime::kStatePath;
using testing::HasSubstr;

using ManagedState = Managed;

TEST_F(ManagedState, IsThereBeforeTheReplyOfAnExactWord) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(published("clock").state, "stopped");
  EXPECT_EQ(published("clock").starts, 0);
  for (int round = 1; round <= 20; ++round) {
    EXPECT_EQ(start("clock"), kDone);
    const PublishedApp app = published("clock");
    EXPECT_EQ(app.state, "running");
    EXPECT_EQ(app.starts, round);
    EXPECT_EQ(app.running, "1.0");
    EXPECT_TRUE(is_alive(app.pid));
    EXPECT_EQ(stop("clock"), kDone);
    EXPECT_EQ(published("clock").state, "stopped");
    EXPECT_EQ(published("clock").pid, 0);
  }
}

TEST_F(ManagedState, IsCurrentAndHasTheStatuses) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const std::string text = read_file(kStatePath);
  const auto state = runtime::StateFile::parse(text);
  ASSERT_TRUE(state) << text;
  EXPECT_TRUE(state->is_current());
  EXPECT_EQ(state->manager().pid, manager_->pid());
  EXPECT_GT(state->descriptors_used(), 3);
  EXPECT_THAT(text, HasSubstr("\nstatus\t0\tclock\tstarted app\n"));
}

TEST_F(ManagedState, GoesWithTheManager) {
  start_manager();
  EXPECT_TRUE(fs::exists(kStatePath));
  manager_->send(SIGTERM);
  EXPECT_EQ(manager_->end(), 0);
  EXPECT_FALSE(fs::exists(kStatePath));
}

TEST_F(ManagedState, IsOfTheGroupOfTheSocket) {
  if (!has_other_users()) GTEST_SKIP() << "there is no other group in this sandbox";
  const group* const users = ::getgrnam("users");
  ASSERT_NE(users, nullptr);
  start_manager({"--socket-mode", "0660", "--socket-group", "users"});
  struct stat file = {};
  struct stat socket = {};
  ASSERT_EQ(::stat(kStatePath, &file), 0);
  ASSERT_EQ(::stat(TQ_COM_SOCKET_PATH, &socket), 0);
  EXPECT_EQ(file.st_gid, users->gr_gid);
  EXPECT_EQ(socket.st_gid, users->gr_gid);
}

// Connecting takes the right to write to the socket.
TEST_F(ManagedState, MayBeReadByThoseWhoMayUseTheSocket) {
  const std::pair<const char*, mode_t> modes[] = {
      {"0666", 0444}, {"0660", 0440}, {"0620", 0440}, {"0640", 0400}, {"0600", 0400}};
  for (const auto& [mode, expected] : modes) {
    start_manager({"--socket-mode", mode});
    struct stat file = {};
    EXPECT_EQ(::stat(kStatePath, &file), 0);
    EXPECT_EQ(file.st_mode & 07777, expected) << mode;
    manager_->send(SIGTERM);
    EXPECT_EQ(manager_->end(), 0);
  }
}

TEST_F(ManagedState, IsGoneWhileItCannotBeWritten) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(start("clock"), kDone);
  const std::string obstacle = std::string(kStatePath) + ".new";
  ASSERT_TRUE(fs::create_directories(obstacle + "/in-the-way"));
  EXPECT_EQ(stop("clock"), kDone);
  EXPECT_FALSE(fs::exists(kStatePath));
  EXPECT_EQ(start("clock"), kDone);
  EXPECT_EQ(manager_->errors(), "tarviod: /run/tarvio/state: File exists\n");
  fs::remove_all(obstacle);
  EXPECT_TRUE(becomes("clock", "running"));
}

struct LeftFile {
  const char* description;
  std::string text;
};

class ManagedStateLeft : public Managed, public testing::WithParamInterface<LeftFile> {};

TEST_P(ManagedStateLeft, IsReportedAndIgnored) {
  install("clock", kStays);
  put_state(GetParam().text);
  start_manager();
  EXPECT_THAT(manager_->errors(), HasSubstr(std::string(kStatePath) + ": is not whole"));
  EXPECT_EQ(status_of("clock"), "");
  EXPECT_EQ(published("clock").starts, 0);
}

constexpr char kRan[] =
    "app\tclock\trunning\t1\t1\t7\t-\t1.0\t1.0\nstatus\t0\tclock\tstarted app\n";

INSTANTIATE_TEST_SUITE_P(
    , ManagedStateLeft,
    testing::Values(LeftFile{"Empty", ""}, LeftFile{"OfAnotherKind", "hello\n"},
                    LeftFile{"WithoutAnEnd", std::string("tarvio-state\t1\n") + kRan},
                    LeftFile{"WithAZero", std::string("\0\0\nend\n", 7)}),
    [](const auto& each) { return std::string(each.param.description); });

TEST_F(ManagedState, OfAnotherBootIsOfNoUse) {
  install("clock", kStays);
  put_state(state_text(kRan, this_process(), std::string(36, '0')));
  start_manager();
  EXPECT_EQ(manager_->errors(), "");
  EXPECT_EQ(status_of("clock"), "");
  EXPECT_EQ(published("clock").starts, 0);
}

TEST_F(ManagedState, OfThisBootIsTakenOver) {
  install("clock", kStays);
  put_state(state_text(kRan, {.pid = 1, .start = 1}));
  start_manager();
  EXPECT_EQ(published("clock").pid, only_process_of("clock"));
  EXPECT_EQ(published("clock").starts, 8);
  EXPECT_EQ(status_of("clock"), kStartedAfterKeeper);
}

TEST_F(ManagedState, MayBeAPipe) {
  fs::create_directories(fs::path(kStatePath).parent_path());
  ASSERT_EQ(::mkfifo(kStatePath, 0600), 0);
  start_manager();
  EXPECT_THAT(manager_->errors(), HasSubstr(std::string(kStatePath) + ": cannot be read"));
}

TEST_F(ManagedState, MayBeADirectory) {
  fs::create_directories(kStatePath);
  start_manager();
  EXPECT_THAT(manager_->errors(), HasSubstr(std::string(kStatePath) + ": cannot be read"));
}

TEST_F(ManagedState, IsWrittenAgainByARefresh) {
  install("clock", kStays);
  start_manager();
  EXPECT_EQ(published("clock").state, "stopped");
  fs::remove(kStatePath);
  EXPECT_EQ(request("refresh_apps\n").substr(0, 2), "0\n");
  EXPECT_EQ(published("clock").state, "stopped");
}

// Silent clients take the descriptors.
TEST_F(ManagedState, ShortOfDescriptorsIsReportedOnce) {
  start_manager({}, [] {
    const rlimit limit = {.rlim_cur = 40, .rlim_max = 40};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  });
  const auto count_warnings = [&] {
    const std::string errors = manager_->errors();
    size_t count = 0;
    for (size_t at = 0; (at = errors.find("of 40 are in use", at)) != std::string::npos; ++at)
      ++count;
    return count;
  };
  const long before = count_descriptors(manager_->pid());
  for (size_t round = 1; round <= 2; ++round) {
    EXPECT_EQ(request("refresh_apps\n").substr(0, 2), "0\n");
    EXPECT_EQ(count_warnings(), round - 1);
    std::vector<Socket> clients;
    for (int count = 0; count < 20; ++count) clients.push_back(connect_to(TQ_COM_SOCKET_PATH));
    // Without a request. The state follows the warning.
    EXPECT_TRUE(eventually([&] {
      return read_file(kStatePath).find("\ndescriptors\t32\t40\n") != std::string::npos;
    }));
    EXPECT_EQ(count_warnings(), round);
    clients[5] = Socket();  // a gap
    for (int again = 0; again < 2; ++again)
      EXPECT_EQ(request("refresh_apps\n").substr(0, 2), "0\n");
    EXPECT_EQ(count_warnings(), round);
    clients.clear();
    EXPECT_TRUE(eventually([&] { return count_descriptors(manager_->pid()) == before; }));
  }
}

}  // namespace
}  // namespace tarvio_test
