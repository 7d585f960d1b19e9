// How tarviod ends.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarviod.h"
#include "support/work_directory.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

// Nothing is left but the file that managers lock.
void expect_no_socket() {
  EXPECT_EQ(names_in("/usr/local/share/tarvio"), std::vector<std::string>{"ipcom.lock"});
}

class Signal : public testing::TestWithParam<int> {};

TEST_P(Signal, EndsTheManagerAndItsApplications) {
  install_application("clock");
  install_application("radio");
  Tarviod manager({"--start-all"});
  ASSERT_TRUE(manager.answers());
  const pid_t clock = process_of("clock");
  const pid_t radio = process_of("radio");
  manager.send(GetParam());
  EXPECT_EQ(manager.end(), 0);
  EXPECT_TRUE(ends(clock));
  EXPECT_TRUE(ends(radio));
  EXPECT_TRUE(was_stopped("clock"));
  EXPECT_TRUE(was_stopped("radio"));
  EXPECT_EQ(manager.errors(), "");
}

TEST_P(Signal, RemovesTheSocket) {
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  manager.send(GetParam());
  EXPECT_EQ(manager.end(), 0);
  expect_no_socket();
}

TEST_P(Signal, KeepsTheApplicationsWhenTold) {
  install_application("clock");
  Tarviod manager({"--start-all", "--keep-applications"});
  ASSERT_TRUE(manager.answers());
  const pid_t clock = process_of("clock");
  manager.send(GetParam());
  EXPECT_EQ(manager.end(), 0);
  expect_no_socket();
  EXPECT_TRUE(is_alive(clock));
  EXPECT_FALSE(was_stopped("clock"));
}

INSTANTIATE_TEST_SUITE_P(TarviodEnd, Signal, testing::Values(SIGTERM, SIGINT));

TEST(TarviodEnd, StopsWhatOnlyItsExactNameReaches) {
  install_application("web");
  install_application("webserver");  // comes first in the order of the manager
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_exact\nweb\n"), "0\n\n");
  const pid_t web = process_of("web");
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_TRUE(ends(web));
  EXPECT_TRUE(was_stopped("web"));
}

TEST(TarviodEnd, RunsNoStopFileOfAnApplicationThatWasNotStarted) {
  install_application("clock");
  install_application("radio");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
  process_of("clock");
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_TRUE(was_stopped("clock"));
  EXPECT_FALSE(was_stopped("radio"));
}

TEST(TarviodEnd, CanBeRequestedDuringTheStart) {
  const TempDir directory;
  const std::string go = directory / "go";
  Tarviod manager({}, with_module(TARVIOD_HELD_SETUP, go));
  const auto catches_it = [&] {
    return (signals_of(manager.pid(), "SigCgt") >> (SIGTERM - 1) & 1U) != 0;
  };
  ASSERT_TRUE(eventually(catches_it));
  manager.send(SIGTERM);
  write_file(go, "");
  EXPECT_EQ(manager.end(), 0);
  expect_no_socket();
}

// A clock for the manager that stands still until the test moves it.
class LateClock {
 public:
  LateClock() { put_on("0"); }
  void put_on(const std::string& seconds) const { write_file(file_, seconds); }
  std::function<void()> module() const { return with_module(TARVIOD_LATE_CLOCK, file_); }

 private:
  const TempDir directory_;
  const std::string file_ = directory_ / "clock";
};

// As the program timeout sends it: to the process, and to its group.
TEST(TarviodEnd, TakesTheSameSignalWithinASecondForOne) {
  install_application("clock");
  const LateClock clock;
  Tarviod manager({"--start-all"}, clock.module());
  ASSERT_TRUE(manager.answers());
  const pid_t process = process_of("clock");
  manager.send(SIGTERM);
  ASSERT_TRUE(eventually([] { return was_stopped("clock"); }));
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_EQ(manager.errors(), "");
  EXPECT_TRUE(ends(process));
}

// Nobody takes signals any more then.
TEST(TarviodEnd, IsNotHeldUpByASignalAtTheLastMoment) {
  Tarviod manager({}, with_module(TARVIOD_LATE_SIGNAL));
  ASSERT_TRUE(manager.answers());
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
}

// Ten applications, each of which takes a second to stop.
class TarviodWithManyApplications : public testing::Test {
 protected:
  TarviodWithManyApplications() {
    for (char name = 'a'; name <= 'j'; ++name) {
      install_application(std::string(3, name));
      slow_the_stop_of(std::string(3, name));
    }
  }
  static void all_run() {
    for (char name = 'a'; name <= 'j'; ++name) process_of(std::string(3, name));
  }
  // Waits until the first application is stopped, which is the last in the alphabet.
  static testing::AssertionResult is_stopping() {
    return eventually([] { return was_stopped("jjj"); })
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << "no application was stopped";
  }
};

constexpr char kCutShort[] = "tarviod: stopping the applications: cut short by a second signal\n";

TEST_F(TarviodWithManyApplications, AreNotWaitedForAfterASecondSignal) {
  Tarviod manager({"--start-all"});
  ASSERT_TRUE(manager.answers());
  all_run();
  manager.send(SIGTERM);
  ASSERT_TRUE(is_stopping());
  manager.send(SIGINT);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_EQ(manager.errors(), kCutShort);
  EXPECT_FALSE(was_stopped("aaa"));
  expect_no_socket();
}

TEST_F(TarviodWithManyApplications, AreNotWaitedForAfterTheSameSignalASecondLater) {
  const LateClock clock;
  Tarviod manager({"--start-all"}, clock.module());
  ASSERT_TRUE(manager.answers());
  all_run();
  manager.send(SIGTERM);
  ASSERT_TRUE(is_stopping());
  clock.put_on("2");
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_EQ(manager.errors(), kCutShort);
  EXPECT_FALSE(was_stopped("aaa"));
  expect_no_socket();
}

// Neither its stop file nor SIGTERM ends it.
TEST(TarviodEnd, KillsAnApplicationThatDoesNotStop) {
  install_application("clock");
  write_program(information_file("clock", ".tqstopapp"), "#!/bin/sh\nexec sleep 600\n");
  const fs::path process = fs::temp_directory_path() / "clock.process";
  write_program(information_file("clock", ".tqstartapp"),
                "#!/bin/sh\ntrap '' TERM\necho $$ >" + process.string() + ".new\nmv " +
                    process.string() + ".new " + process.string() +
                    "\nwhile :; do sleep 600; done\n");
  fs::create_directories("/etc/tarvio/apps.d");
  write_file("/etc/tarvio/apps.d/clock.conf", "stop_timeout: 1\n");
  Tarviod manager({"--start-all"});
  ASSERT_TRUE(manager.answers());
  const pid_t clock = process_of("clock");
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_EQ(manager.errors(), "");
  EXPECT_FALSE(is_alive(clock));
}

// Clients that request a start while the manager stops the applications.
class LateClients {
 public:
  explicit LateClients(const std::vector<std::string>& applications) {
    for (const std::string& application : applications) {
      clients_.push_back(connect_to(TQ_COM_SOCKET_PATH));
      clients_.back().send("start_app\n" + application + "\n");
      clients_.back().end_sending();
    }
  }
  std::string reply(size_t client) const { return clients_.at(client).read_to_end(); }

 private:
  std::vector<Socket> clients_;
};

class TarviodEndWithLateClients : public testing::Test {
 protected:
  // Runs before the manager starts, which lists the applications once.
  static std::vector<std::string> install(const std::vector<std::string>& late) {
    install_application("clock");
    slow_the_stop_of("clock");
    for (const std::string& name : late) install_application(name);
    return late;
  }
  void begin_the_end() {
    ASSERT_TRUE(manager_.answers());
    EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
    process_of("clock");
    manager_.send(SIGTERM);
    ASSERT_TRUE(eventually([] { return was_stopped("clock"); }));
  }

  const std::vector<std::string> late_ = install({"late1", "late2"});
  Tarviod manager_;
};

TEST_F(TarviodEndWithLateClients, LeavesNoApplicationOfTheirs) {
  ASSERT_NO_FATAL_FAILURE(begin_the_end());
  const LateClients clients(late_);
  EXPECT_EQ(manager_.end(), 0);
  for (size_t client = 0; client < late_.size(); ++client) {
    EXPECT_EQ(clients.reply(client), "0\n\n");
    EXPECT_TRUE(ends(process_of(late_[client]))) << late_[client];
  }
  expect_no_socket();
}

TEST_F(TarviodEndWithLateClients, KeepsOtherManagersFromStartingUntilItHasEnded) {
  ASSERT_NO_FATAL_FAILURE(begin_the_end());
  const LateClients clients(late_);
  ASSERT_TRUE(eventually([] { return !fs::exists(TQ_COM_SOCKET_PATH); }));
  EXPECT_EQ(run_tarviod({}).status, 1);
  EXPECT_EQ(manager_.end(), 0);
  Tarviod next;
  ASSERT_TRUE(next.answers());
  EXPECT_EQ(listening_process(), next.pid());
}

TEST(TarviodEnd, WaitsForTheRequestThatIsServed) {
  install_application("clock");
  Tarviod manager;
  ASSERT_TRUE(manager.answers());
  const Socket client = connect_to(TQ_COM_SOCKET_PATH);
  client.send("start_app\nclock\n");
  manager.send(SIGTERM);
  client.end_sending();
  EXPECT_EQ(client.read_to_end(), "0\n\n");
  EXPECT_EQ(manager.end(), 0);
  EXPECT_TRUE(ends(process_of("clock")));
}

TEST(TarviodEnd, NeedsNoSocketToStopTheApplications) {
  install_application("clock");
  Tarviod manager({"--start-all"});
  ASSERT_TRUE(manager.answers());
  const pid_t clock = process_of("clock");
  fs::remove(TQ_COM_SOCKET_PATH);
  manager.send(SIGTERM);
  EXPECT_EQ(manager.end(), 0);
  EXPECT_EQ(manager.errors(), "");
  EXPECT_TRUE(ends(clock));
}

TEST(TarviodEnd, KeepsOtherManagersFromStartingUntilTheApplicationsAreStopped) {
  install_application("clock");
  slow_the_stop_of("clock");
  Tarviod manager({"--start-all"});
  ASSERT_TRUE(manager.answers());
  process_of("clock");
  manager.send(SIGTERM);
  ASSERT_TRUE(eventually([] { return was_stopped("clock"); }));
  EXPECT_EQ(run_tarviod({}).status, 1);
  EXPECT_EQ(manager.end(), 0);
}

}  // namespace
}  // namespace tarvio_test
