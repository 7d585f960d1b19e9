// Applications that tarviod starts and stops.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarviod.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

std::string request(const std::string& lines) { return ask(TQ_COM_SOCKET_PATH, lines); }

fs::path in_proc(pid_t process, const std::string& name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

TEST(TarviodApplication, RunsFromItsStartToItsStop) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(request("start_app\nclock\n"), "0\n\n");
  const pid_t process = process_of("clock");
  EXPECT_EQ(request("status_all\n"), "clock\n0\nstarted app\n");
  EXPECT_TRUE(is_alive(process));
  EXPECT_EQ(request("stop_app\nclock\n"), "0\n\n");
  EXPECT_TRUE(ends(process));
  EXPECT_EQ(request("status_all\n"), "");
}

TEST(TarviodApplication, IsReachedByItsExactName) {
  install_application("web");
  install_application("webserver");  // comes first in the order of the manager
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(request("start_exact\nweb\n"), "0\n\n");
  EXPECT_EQ(request("status_all\n"), "web\n0\nstarted app\n");
  const pid_t process = process_of("web");
  EXPECT_EQ(request("stop_exact\nwe\n"), "22\n\n");
  EXPECT_EQ(request("start_exact\n"), "22\n\n");
  EXPECT_EQ(request("stop_exact\n"), "22\n\n");
  EXPECT_TRUE(is_alive(process));
  EXPECT_EQ(request("stop_exact\nweb\n"), "0\n\n");
  EXPECT_TRUE(ends(process));
  EXPECT_EQ(request("status_all\n"), "");
}

TEST(TarviodApplication, CanBeStartedAgain) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(request("start_app\nclock\n"), "0\n\n");
  const pid_t first = process_of("clock");
  EXPECT_EQ(request("stop_app\nclock\n"), "0\n\n");
  EXPECT_TRUE(ends(first));
  forget_process_of("clock");
  EXPECT_EQ(request("start_app\nclock\n"), "0\n\n");
  EXPECT_TRUE(is_alive(process_of("clock")));
}

TEST(TarviodApplication, IsNotStartedWithoutARequest) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(request("status_all\n"), "");
}

TEST(TarviodApplication, StartsWithTheManagerOnStartAll) {
  install_application("clock");
  install_application("radio");
  Tarviod manager({"--start-all"});
  ASSERT_TRUE(manager.answers());
  EXPECT_TRUE(is_alive(process_of("clock")));
  EXPECT_TRUE(is_alive(process_of("radio")));
  EXPECT_EQ(request("status_all\n"), "radio\n0\nstarted app\nclock\n0\nstarted app\n");
}

TEST(TarviodApplication, UnknownNameGives22) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(request("start_app\ncalendar\n"), "22\n\n");
  EXPECT_EQ(request("stop_app\ncalendar\n"), "22\n\n");
  EXPECT_EQ(request("status_all\n"), "");
}

// The start itself succeeds (oddity 45).
TEST(TarviodApplication, HasAnErrorStatusWhenItsStartFileCannotRun) {
  install_package("broken", "Application");
  write_file(information_file("broken", ".tqstartapp"), "no program\n");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(request("start_app\nbroken\n"), "0\n\n");
  EXPECT_TRUE(eventually([&] {
    return request("status_all\n") == "broken\n2\ncannot run its start file: Permission denied\n";
  }));
}

TEST(TarviodApplication, HasDefaultSignalsExceptSigchld) {
  install_application("clock");
  replace_start_file_by_program("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(request("start_app\nclock\n"), "0\n\n");
  const std::vector<pid_t> started = children_of(keeper_of(manager.pid()));
  ASSERT_EQ(started.size(), 1U);
  // The keeper's own handlers are there until the program runs.
  EXPECT_TRUE(eventually([&] { return signals_of(started[0], "SigCgt") == 0; }));
  EXPECT_EQ(signals_of(started[0], "SigBlk"), 0U);
  EXPECT_EQ(signals_of(started[0], "SigIgn"), uint64_t{1} << (SIGCHLD - 1));
}

std::map<int, std::string> descriptors_of(pid_t process) {
  std::map<int, std::string> descriptors;
  for (const auto& entry : fs::directory_iterator(in_proc(process, "fd"))) {
    std::error_code gone;  // a program opens and closes files while it starts
    const std::string target = fs::read_symlink(entry.path(), gone);
    if (!gone) descriptors[std::stoi(entry.path().filename())] = target;
  }
  return descriptors;
}

TEST(TarviodApplication, HasOnlyItsStandardStreams) {
  install_application("clock");
  install_application("radio");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  for (const char* name : {"clock", "radio"}) {
    EXPECT_EQ(request(std::string("start_app\n") + name + "\n"), "0\n\n");
    const pid_t process = process_of(name);
    // Others are open while its program is loaded.
    ASSERT_TRUE(eventually([&] { return descriptors_of(process).size() == 3; }))
        << testing::PrintToString(descriptors_of(process));
    const auto of_application = descriptors_of(process);
    const auto of_manager = descriptors_of(manager.pid());
    EXPECT_EQ(of_application.at(0), "/dev/null");
    for (const int stream : {1, 2}) EXPECT_EQ(of_application.at(stream), of_manager.at(stream));
  }
}

TEST(TarviodApplication, MayOpenAsManyFilesAsTheManager) {
  install_application("clock");
  Tarviod manager({"--start-all"}, [] {
    const rlimit limit = {.rlim_cur = 64, .rlim_max = 200};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  });
  ASSERT_TRUE(manager.answers());
  rlimit limit = {};
  ASSERT_EQ(::prlimit(process_of("clock"), RLIMIT_NOFILE, nullptr, &limit), 0);
  EXPECT_EQ(limit.rlim_cur, 64U);
  EXPECT_EQ(limit.rlim_max, 200U);
}

TEST(TarviodApplication, IsServedToManyClientsAtOnce) {
  constexpr int kClients = 12;
  constexpr int kRequests = 20;
  const auto name_of = [](int client) { return "app" + std::to_string(client) + "."; };
  for (int client = 0; client < kClients; ++client) install_application(name_of(client));
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  std::vector<std::thread> clients;
  for (int client = 0; client < kClients; ++client) {
    clients.emplace_back([name = name_of(client)] {
      EXPECT_EQ(request("start_app\n" + name + "\n"), "0\n\n");
      for (int sent = 0; sent < kRequests; ++sent) EXPECT_EQ(status_of(name), "0\nstarted app\n");
    });
  }
  for (std::thread& client : clients) client.join();
  for (int client = 0; client < kClients; ++client)
    EXPECT_TRUE(is_alive(process_of(name_of(client))));
}

}  // namespace
}  // namespace tarvio_test
