// A busy day: applications are started, stopped, crash, are installed, upgraded and removed, while
// the manager, its keeper or both are killed at random moments.
//
// TARVIO_KILLS says how often, TARVIO_SEED which day it is.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "managed.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

int number_from(const char* variable, int otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::atoi(text);
}

// Empty when the manager was killed before it could reply.
std::string request_if_possible(const std::string& lines) {
  const sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = TQ_COM_SOCKET_PATH};
  const Socket client = new_socket();
  if (::connect(client.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::send(client.fd(), lines.data(), lines.size(), MSG_NOSIGNAL) < 0) {
    return "";
  }
  ::shutdown(client.fd(), SHUT_WR);
  return client.read_to_end();
}

enum class Wanted { kStopped, kRunning, kEnded, kUnknown, kRemoved };

struct DayApp {
  std::string name;
  std::string settings;
  bool forks = false;
  bool has_stop_file = false;
  Wanted wanted = Wanted::kStopped;
  int crashes = 0;  // since the last stop: a restart is not given up
};

struct Victims {
  const char* description;
  bool manager;
  bool keeper;
};

class ManagedDay : public Managed, public testing::WithParamInterface<Victims> {
 protected:
  void SetUp() override {
    std::cout << "TARVIO_SEED=" << seed_ << '\n';
    for (const DayApp& app : apps_) install_app(app);
    start_manager();
  }

  void install_app(const DayApp& app) const {
    const std::string base = directory_ / app.name;
    const std::string guard = "exec 9>>" + base + ".lock; flock -n 9 || { echo " + app.name +
                              " >>" + twice_ + "; exit 1; }\necho $$ >" + base + ".process\n";
    install(app.name, guard + (app.forks ? "sleep 600 & exit 0" : kStays),
            app.has_stop_file ? "kill $(cat " + base + ".process)" : "");
    configure(app.name, app.settings);
  }

  int random(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }
  DayApp& any_app() { return apps_[static_cast<size_t>(random(static_cast<int>(apps_.size())))]; }

  void do_something() {
    DayApp& app = any_app();
    switch (random(10)) {
      case 0:
        return crash(app);
      case 1:
        return change(app);
      case 2:
        return remove_or_install_guest();
      default:
        if (app.wanted == Wanted::kRemoved) return;
        return set_running(app, random(2) == 0);
    }
  }

  void set_running(DayApp& app, bool runs) {
    // Until the manager has heard of the crash, it counts as started.
    if (app.wanted == Wanted::kEnded && published(app.name).state != "ended") return;
    const std::string word = runs ? "start_exact\n" : "stop_exact\n";
    const std::string reply = request_if_possible(word + app.name + "\n");
    if (reply.empty()) {
      app.wanted = Wanted::kUnknown;
      return;
    }
    // A stop that an earlier manager has begun.
    const bool is_refused = runs && reply == "16\n\n";
    EXPECT_EQ(reply, is_refused ? "16\n\n" : kDone) << word << app.name;
    if (is_refused) runs = false;
    app.wanted = runs ? Wanted::kRunning : Wanted::kStopped;
    if (!runs) app.crashes = 0;
  }

  void crash(DayApp& app) {
    const bool restarts = app.settings.starts_with("restart");
    if (app.wanted != Wanted::kRunning || app.crashes == 2) return;
    // A manager that has not heard of the crash when the keeper dies starts it again.
    if (!restarts && GetParam().keeper) return;
    const std::vector<pid_t> processes = processes_of(app.name);
    if (processes.empty()) return;
    for (const pid_t process : processes) ::kill(process, SIGKILL);
    ++app.crashes;
    if (!restarts) app.wanted = Wanted::kEnded;
  }

  void change(const DayApp& app) {
    if (app.wanted == Wanted::kRemoved) return;
    upgrade(app.name, std::to_string(++version_));
    (void)request_if_possible("refresh_apps\n");
  }

  void remove_or_install_guest() {
    DayApp& guest = apps_.back();
    const bool was_removed = guest.wanted == Wanted::kRemoved;
    // It still runs when nobody has heard of its removal.
    guest.wanted = was_removed ? Wanted::kUnknown : Wanted::kRemoved;
    guest.crashes = 0;
    if (was_removed) {
      install_app(guest);
    } else {
      uninstall(guest.name);
    }
    (void)request_if_possible("refresh_apps\n");
  }

  // Works until the victims are killed, and goes on with another manager.
  void work_until_a_kill() {
    const pid_t manager = manager_->pid();
    const pid_t keeper = keeper_process();
    std::atomic<bool> is_done = false;
    std::thread killing([&, pause = std::chrono::microseconds(random(30'000))] {
      std::this_thread::sleep_for(pause);
      if (GetParam().keeper) ::kill(keeper, SIGKILL);
      if (GetParam().manager) ::kill(manager, SIGKILL);
      is_done = true;
    });
    while (!is_done) do_something();
    killing.join();
    if (!GetParam().manager) return;
    EXPECT_EQ(manager_->end(), -1);
    EXPECT_TRUE(!GetParam().keeper || ends(keeper));
    start_manager();
  }

  // What was asked for without a reply is asked for again.
  void settle() {
    EXPECT_EQ(request("refresh_apps\n").substr(0, 2), "0\n");
    for (DayApp& app : apps_) {
      if (app.wanted == Wanted::kUnknown) set_running(app, random(2) == 0);
    }
  }

  void check(const DayApp& app) {
    const bool runs = app.wanted == Wanted::kRunning;
    EXPECT_TRUE(eventually([&] {
      return processes_of(app.name).size() == (runs ? 1 : 0) && says_so(app);
    })) << app.name
        << ": wanted " << static_cast<int>(app.wanted) << ", processes "
        << testing::PrintToString(processes_of(app.name)) << ", status " << status_of(app.name)
        << ", published " << published(app.name).state << ' ' << published(app.name).pid;
  }

  static bool says_so(const DayApp& app) {
    const std::string status = status_of(app.name);
    const PublishedApp facts = published(app.name);
    switch (app.wanted) {
      case Wanted::kRunning:
        return status.starts_with("0\nstarted") && facts.state == "running";
      case Wanted::kEnded:
        return status == "2\nended by signal 9 (Killed)\n" && facts.state == "ended";
      case Wanted::kStopped:
        // One that had ended by itself stays so.
        return status.empty() && (facts.state == "stopped" || facts.state == "ended");
      default:
        return status.empty() && facts.state.empty();
    }
  }

  const int seed_ = number_from("TARVIO_SEED", 12);
  const std::string twice_ = directory_ / "twice";
  std::mt19937 random_{static_cast<unsigned>(seed_)};
  int version_ = 1;
  std::vector<DayApp> apps_ = {
      {.name = "alarm", .settings = ""},
      {.name = "clock", .settings = "restart: always\n"},
      {.name = "radio", .settings = "restart: on-failure\n", .forks = true},
      {.name = "web", .settings = "restart: always\nstop_timeout: 1\n", .has_stop_file = true},
      {.name = "guest", .settings = "restart: on-failure\n"},
  };
};

TEST_P(ManagedDay, RunsEachOnceAndLosesNone) {
  const int kills = number_from("TARVIO_KILLS", 20);
  for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
    SCOPED_TRACE("kill " + std::to_string(kill));
    work_until_a_kill();
    settle();
    for (const DayApp& app : apps_) check(app);
    EXPECT_FALSE(fs::exists(twice_)) << "two at once: " << read_file(twice_);
  }
}

INSTANTIATE_TEST_SUITE_P(, ManagedDay,
                         testing::Values(Victims{"WithoutTheManager", true, false},
                                         Victims{"WithoutTheKeeper", false, true},
                                         Victims{"WithoutBoth", true, true}),
                         [](const auto& each) { return std::string(each.param.description); });

}  // namespace
}  // namespace tarvio_test
