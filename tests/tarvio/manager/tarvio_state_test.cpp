// What the client reads of the manager's states and figures: is-running, status --wide, metrics.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "manager/session_memory.h"
#include "process/failure.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarvio.h"
#include "support/programs/written_state.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Gt;
using testing::HasSubstr;
using testing::Lt;

constexpr int kNotRunning = 3;
constexpr int kUnknown = 4;
constexpr char kNoManager[] = "no manager answers on " TQ_COM_SOCKET_PATH "; is tarviod running?\n";

// A session of its own with two processes, as an application may have it.
class Session {
 public:
  Session() {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    leader_ = ::fork();
    if (leader_ == 0) {
      ::setsid();
      const pid_t second = ::fork();
      if (second != 0) (void)::write(ends[1], &second, sizeof second);
      while (true) ::pause();
    }
    EXPECT_EQ(::read(ends[0], &second_, sizeof second_), static_cast<ssize_t>(sizeof second_));
    for (const int end : ends) ::close(end);
  }
  ~Session() {
    ::kill(-leader_, SIGKILL);
    ::waitpid(leader_, nullptr, 0);
  }
  void end_leader() const {
    ::kill(leader_, SIGKILL);
    ::waitpid(leader_, nullptr, 0);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  pid_t leader() const { return leader_; }
  pid_t second() const { return second_; }
  std::string pid() const { return std::to_string(leader_); }

 private:
  pid_t leader_ = -1;
  pid_t second_ = -1;
};

std::string lines_with(const std::string& pid) {
  return "app\tclock\trunning\t" + pid + "\t1700000000\t3\tstatus 2\t1.1\t1.0\n" +
         "app\tradio\tended\t0\t1700000060\t1\tsignal 9\t2.0\t-\n" +
         "app\tjob\tstopped\t0\t0\t0\t-\t1.0\t-\n"
         "app\tbroken\trestarting\t0\t1700000060\t4\tnot-run 13\t1.0\t-\n"
         "status\t0\tclock\tstarted app\n"
         "status\t2\tradio\tended with signal 9\n"
         "status\t1\tdisk\tnearly \"full\"\\\n";
}

class ClientState : public testing::Test {
 protected:
  ClientState() {
    ::setenv("TZ", "UTC", 1);
    write_state(lines_with(session_.pid()));
  }

  const Session session_;
};

TEST_F(ClientState, SaysWhetherAnApplicationIsRunning) {
  const Ran running = run_tarvio({"is-running", "clock"});
  EXPECT_EQ(running.status, 0);
  EXPECT_EQ(running.output, "clock is running, process " + session_.pid() + "\n");
  const Ran ended = run_tarvio({"is-running", "radio"});
  EXPECT_EQ(ended.status, kNotRunning);
  EXPECT_EQ(ended.output, "radio is not running: ended\n");
  EXPECT_EQ(run_tarvio({"is-running", "broken"}).output, "broken is not running: restarting\n");
  const Ran unknown = run_tarvio({"is-running", "disk"});
  EXPECT_EQ(unknown.status, kUnknown);
  EXPECT_EQ(unknown.errors,
            "tarvio: cannot know whether 'disk' is running: no such application; see 'tarvio list "
            "--category application'\n");
}

TEST_F(ClientState, SaysQuietlyWhetherAnApplicationIsRunning) {
  for (const char* const name : {"clock", "radio"}) {
    const Ran run = run_tarvio({"is-running", "-q", name});
    EXPECT_EQ(run.output + run.errors, "");
  }
  EXPECT_EQ(run_tarvio({"is-running", "-q", "radio"}).status, kNotRunning);
}

TEST_F(ClientState, SaysInJsonWhetherAnApplicationIsRunning) {
  EXPECT_EQ(json::parse(run_tarvio({"is-running", "radio", "--json"}).output),
            json({{"name", "radio"}, {"running", false}, {"pid", nullptr}}));
  EXPECT_EQ(json::parse(run_tarvio({"is-running", "disk", "--json"}).output)["running"], nullptr);
}

TEST_F(ClientState, IsAWideTable) {
  const Ran run = run_tarvio({"status", "--wide", "radio"});
  EXPECT_EQ(run.status, 11);
  EXPECT_EQ(run.output,
            "NAME   STATE  RUN    PID  SINCE                STARTS  LAST EXIT         MEMORY  "
            "VERSION  DETAIL\n"
            "radio  error  ended  -    2023-11-14 22:14:20  1       signal 9: Killed  -       2.0"
            "      ended with signal 9\n");
  const std::string all = run_tarvio({"status", "--wide"}).output;
  EXPECT_THAT(all, HasSubstr("1.0, upgraded to 1.1: restart it"));
  EXPECT_THAT(all, HasSubstr("cannot run its start file: Permission denied"));
  EXPECT_THAT(all, HasSubstr("\njob     -        stopped"));
  EXPECT_THAT(all, HasSubstr("\ndisk    warning  -"));
  EXPECT_THAT(run_tarvio({"status", "--wide", "--apps"}).output, Not(HasSubstr("disk")));
}

TEST_F(ClientState, IsWideJson) {
  const json all = json::parse(run_tarvio({"status", "--wide", "--json"}).output);
  ASSERT_EQ(all.size(), 5U);
  json clock = all[0];
  EXPECT_THAT(clock["memory"].get<int64_t>(), AllOf(Gt(4096), Lt(1 << 30)));
  clock.erase("memory");
  EXPECT_EQ(clock, json({{"name", "clock"},
                         {"state", "normal"},
                         {"state_code", 0},
                         {"detail", "started app"},
                         {"run_state", "running"},
                         {"pid", std::stoi(session_.pid())},
                         {"since", 1700000000},
                         {"starts", 3},
                         {"last_exit", {{"status", 2}, {"message", "status 2"}}},
                         {"installed_version", "1.1"},
                         {"running_version", "1.0"},
                         {"upgraded", true}}));
  EXPECT_EQ(all[2], json({{"name", "job"},
                          {"state", nullptr},
                          {"state_code", nullptr},
                          {"detail", nullptr},
                          {"run_state", "stopped"},
                          {"pid", nullptr},
                          {"since", nullptr},
                          {"starts", 0},
                          {"last_exit", nullptr},
                          {"memory", nullptr},
                          {"installed_version", "1.0"},
                          {"running_version", nullptr},
                          {"upgraded", false}}));
  EXPECT_EQ(all[3]["last_exit"]["error"], 13);
  EXPECT_EQ(all[4]["name"], "disk");
  EXPECT_EQ(all[4]["starts"], nullptr);
}

TEST_F(ClientState, OfANameEndsWithItsStatus) {
  EXPECT_EQ(run_tarvio({"status", "--wide", "clock"}).status, 0);
  EXPECT_EQ(run_tarvio({"status", "--wide", "disk"}).status, 10);
  const Ran without = run_tarvio({"status", "--wide", "job", "--json"});
  EXPECT_EQ(without.status, 12);
  EXPECT_EQ(json::parse(without.output)["name"], "job");
  const Ran unknown = run_tarvio({"status", "--wide", "nosuch"});
  EXPECT_EQ(unknown.status, 12);
  EXPECT_EQ(unknown.errors, "tarvio: no status for 'nosuch': not started, or not an exact name\n");
}

TEST_F(ClientState, IsNotWatchedWide) {
  EXPECT_EQ(run_tarvio({"status", "--wide", "--watch"}).errors,
            "tarvio: --wide cannot be used with --watch; try 'tarvio status --help'\n");
}

TEST_F(ClientState, CountsTheMemoryOfAllProcessesOfASession) {
  EXPECT_TRUE(eventually([&] {
    runtime::ProcessFacts leader;
    runtime::ProcessFacts second;
    EXPECT_TRUE(runtime::read_process(session_.leader(), leader));
    EXPECT_TRUE(runtime::read_process(session_.second(), second));
    const uint64_t both = leader.memory_bytes + second.memory_bytes;
    const client::SessionMemory memory;
    return second.memory_bytes > 0 && memory.of(session_.leader()) == both &&
           memory.of(session_.second()) == both;
  }));
  EXPECT_FALSE(client::SessionMemory().of(0));
}

// A start file that went to the background leaves its session to others.
TEST_F(ClientState, CountsTheMemoryOfASessionWithoutItsLeader) {
  session_.end_leader();
  write_state(lines_with(std::to_string(session_.second())));
  EXPECT_FALSE(client::SessionMemory().of(session_.leader()));
  const json clock = json::parse(run_tarvio({"status", "--wide", "clock", "--json"}).output);
  EXPECT_GT(clock["memory"], 4096);
}

TEST(ClientMemory, IsMissedWithAReasonWhereTheProcessesCannotBeRead) {
  rlimit limit = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {.rlim_cur = 0, .rlim_max = limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  std::string reason;
  try {
    const client::SessionMemory memory;
  } catch (const client::Failure& failure) {
    reason = failure.what();
  }
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(reason, "cannot read the processes in /proc: Too many open files");
}

// Prints what the parser makes of it, or why that is not OpenMetrics.
constexpr char kParse[] = R"py(
import sys
from prometheus_client.openmetrics.parser import text_string_to_metric_families
for family in text_string_to_metric_families(sys.stdin.read()):
    for sample in family.samples:
        labels = ",".join(f"{key}={value}" for key, value in sorted(sample.labels.items()))
        print(family.type, sample.name, labels, f"{float(sample.value):.0f}")
)py";

std::string parsed(const std::string& text) {
  const TempDir directory;
  write_file(directory / "parse", kParse);
  write_file(directory / "metrics", text);
  const std::string command = "/usr/bin/python3 " + (directory / "parse").string() + " <" +
                              (directory / "metrics").string() + " >" +
                              (directory / "parsed").string() + " 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);
  return read_file(directory / "parsed");
}

TEST_F(ClientState, IsOpenMetrics) {
  if (std::system("/usr/bin/python3 -c 'import prometheus_client' 2>/dev/null") != 0) {
    GTEST_SKIP() << "python3-prometheus-client is not installed";
  }
  const Ran run = run_tarvio({"metrics"});
  EXPECT_EQ(run.status, 0);
  const std::string samples = parsed(run.output);
  for (const char* const sample :
       {"gauge tarvio_manager_open_descriptors  23\n",
        "gauge tarvio_manager_max_descriptors  1024\n",
        "gauge tarvio_application_running application=clock 1\n",
        "gauge tarvio_application_running application=radio 0\n",
        "counter tarvio_application_starts_total application=clock 3\n",
        "gauge tarvio_application_memory_bytes application=clock ",
        "gauge tarvio_application_state_since_seconds application=clock 1700000000\n",
        "stateset tarvio_application_state application=radio,tarvio_application_state=ended 1\n",
        "stateset tarvio_application_state application=radio,tarvio_application_state=running "
        "0\n",
        "gauge tarvio_application_last_exit application=clock,kind=status 2\n",
        "gauge tarvio_application_last_exit application=broken,kind=error 13\n",
        "info tarvio_application_info application=clock,installed_version=1.1,running_version=1.0 "
        "1\n",
        "gauge tarvio_status name=disk 1\n"}) {
    EXPECT_THAT(samples, HasSubstr(sample));
  }
  EXPECT_THAT(samples, Not(HasSubstr("memory_bytes application=radio")));
}

TEST_F(ClientState, IsOpenMetricsWithAnyName) {
  if (std::system("/usr/bin/python3 -c 'import prometheus_client' 2>/dev/null") != 0) {
    GTEST_SKIP() << "python3-prometheus-client is not installed";
  }
  write_state("status\t0\ta\"b\\c\xff\t\n");
  EXPECT_THAT(parsed(run_tarvio({"metrics"}).output),
              HasSubstr("gauge tarvio_status name=a\"b\\c\\xff 0\n"));
}

TEST_F(ClientState, IsAlsoMetricsInJson) {
  const json metrics = json::parse(run_tarvio({"metrics", "--json"}).output);
  EXPECT_EQ(metrics["open_descriptors"], 23);
  EXPECT_EQ(metrics["max_descriptors"], 1024);
  EXPECT_EQ(metrics["entries"][1]["name"], "radio");
}

const std::vector<std::vector<std::string>> kReaders = {
    {"status", "--wide"}, {"metrics"}, {"wait", "clock", "--state", "running"}};

void expect_no_manager() {
  for (const auto& line : kReaders) {
    const Ran run = run_tarvio(line);
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, std::string("tarvio: ") + kNoManager);
  }
  const Ran run = run_tarvio({"is-running", "clock"});
  EXPECT_EQ(run.status, kUnknown);
  EXPECT_EQ(run.errors,
            std::string("tarvio: cannot know whether 'clock' is running: ") + kNoManager);
}

TEST(ClientStateOfNoManager, IsNoneWithoutAFile) { expect_no_manager(); }

TEST(ClientStateOfNoManager, IsNotWhatOneLeftThatEnded) {
  runtime::ProcessId ended = this_process();
  ++ended.start;
  put_state(state_text("", ended));
  expect_no_manager();
}

TEST(ClientStateOfNoManager, IsNotThatOfAnEarlierBoot) {
  put_state(state_text("", this_process(), "12345678-1234-1234-1234-123456789abc"));
  expect_no_manager();
}

TEST(ClientStateOfNoManager, IsNotAPart) {
  const std::string whole = state_text("status\t0\tclock\tok\n");
  for (const size_t length : {size_t{0}, whole.size() - 4, whole.size() - 1}) {
    put_state(whole.substr(0, length));
    expect_no_manager();
  }
  put_state(state_text("nonsense\n"));
  expect_no_manager();
}

TEST(ClientStateOfAnOlderManager, IsMissedWithTheRemedy) {
  const Socket listener = listen_on(TQ_COM_SOCKET_PATH);
  for (const auto& line : kReaders) {
    const Ran run = run_tarvio(line);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors,
              "tarvio: the running manager has not written a whole /run/tarvio/state; update or "
              "restart tarviod\n");
  }
}

TEST(ClientStateOfAManagerOfOthers, MayNotBeRead) {
  write_state("");
  ::chmod(runtime::kStatePath, 0);
  EXPECT_EQ(run_tarvio({"metrics"}, give_up_file_permissions).errors,
            "tarvio: no permission to read /run/tarvio/state; run tarvio as root\n");
}

}  // namespace
}  // namespace tarvio_test
