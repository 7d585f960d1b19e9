#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/children.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/tbx.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kUnit[] = "util/tq_tbx_util";

class RunCommand : public testing::Test {
 protected:
  static int run(std::vector<std::string> words, int count = 0) {
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    return tq_run_command(count, argv.data());
  }
  static int run_shell(const std::string& line) { return run({"sh", "-c", line}); }

  // What was logged after the message of the child's end.
  static std::vector<std::string> logged(const LogCapture& log) {
    std::vector<std::string> messages = unit_messages(log, kUnit);
    EXPECT_FALSE(messages.empty());
    if (messages.empty()) return messages;
    int pid = 0;
    EXPECT_EQ(
        std::sscanf(messages[0].c_str(), "debug: tq_run_command: child(PID=%d) finished! ", &pid),
        1);
    EXPECT_EQ(messages[0],
              "debug: tq_run_command: child(PID=" + std::to_string(pid) + ") finished! ");
    EXPECT_GT(pid, 1);
    messages.erase(messages.begin());
    return messages;
  }

  const TempDir directory_;
};

TEST_F(RunCommand, ThatSucceedsIs0) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(run({"true"}), 0);
  EXPECT_THAT(logged(log), ElementsAre("debug: tq_run_command: exit, status=0 "));
}

TEST_F(RunCommand, ThatExitsGivesItsStatus) {
  for (const std::string status : {"1", "2", "22", "127", "255"}) {
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(run_shell("exit " + status), std::stoi(status));
    EXPECT_THAT(logged(log),
                ElementsAre("debug: tq_run_command: exit, status=" + status + " ",
                            "debug: tq_run_command: run command error - status=" + status + " "));
  }
}

TEST_F(RunCommand, ThatASignalEndsGivesItsNumber) {
  for (const std::string signal : {"9", "15"}) {
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(run_shell("kill -" + signal + " $$"), std::stoi(signal));
    EXPECT_THAT(logged(log),
                ElementsAre("debug: tq_run_command: signal, sig=" + signal + " ",
                            "debug: tq_run_command: run command error - status=" + signal + " "));
  }
}

// A core dump sets a further bit of the status.
TEST_F(RunCommand, ThatASignalEndsWithACoreGivesItsNumberAlone) {
  Hook wait("waitpid", [](pid_t child, int* status, int options) {
    const pid_t ended = ::waitpid(child, status, options);
    *status = SIGSEGV | 0x80;
    return ended;
  });
  EXPECT_EQ(run({"true"}), SIGSEGV);
}

TEST_F(RunCommand, WithAnyOtherStatusGivesTheWholeStatus) {
  for (const int status : {0x137f, 0xffff}) {  // stopped, continued
    Hook wait("waitpid", [status](pid_t child, int* stored, int options) {
      const pid_t ended = ::waitpid(child, stored, options);
      *stored = status;
      return ended;
    });
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(run({"true"}), status);
    EXPECT_THAT(logged(log), ElementsAre("debug: tq_run_command: abnormal exit ",
                                         "debug: tq_run_command: run command error - status=" +
                                             std::to_string(status) + " "));
  }
}

TEST_F(RunCommand, IsLookedForOnPath) {
  write_program(directory_ / "tool", "#!/bin/sh\nexit 7\n");
  EXPECT_EQ(run({"tool"}), 1);
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", (directory_.path().string() + ":" + path).c_str(), 1);
  EXPECT_EQ(run({"tool"}), 7);
  ::setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(run({directory_ / "tool"}), 7);
}

TEST_F(RunCommand, GetsItsArgumentsAsTheyAre) {
  const std::string shown = directory_ / "shown";
  EXPECT_EQ(run({"sh", "-c", R"(printf '<%s>' "$@" >)" + shown, "sh", "a  b", "", "$HOME;'\"*\n"}),
            0);
  EXPECT_EQ(read_file(shown), "<a  b><><$HOME;'\"*\n>");
}

TEST_F(RunCommand, EndsAtTheNullArgumentWhateverTheCountSays) {
  for (const int count : {-1, 0, 1, 100})
    EXPECT_EQ(run({"sh", "-c", "exit $#", "sh", "a"}, count), 1);
}

TEST_F(RunCommand, SharesTheStandardStreams) {
  const std::string in = directory_ / "in";
  const std::string out = directory_ / "out";
  const std::string err = directory_ / "err";
  write_file(in, "input\n");
  {
    const Redirect input(STDIN_FILENO, in);
    const Redirect output(STDOUT_FILENO, out);
    const Redirect errors(STDERR_FILENO, err);
    EXPECT_EQ(run_shell("cat; echo error >&2"), 0);
  }
  EXPECT_EQ(read_file(out), "input\n");
  EXPECT_EQ(read_file(err), "error\n");
}

TEST_F(RunCommand, HasTheEnvironmentOfTheCaller) {
  const auto variables = [] {
    std::multiset<std::string> all;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) all.insert(*entry);
    return all;
  };
  const auto variables_of_program = [&] {
    const std::string out = directory_ / "out";
    write_file(out, "");
    {
      const Redirect output(STDOUT_FILENO, out);
      EXPECT_EQ(run({"/usr/bin/env", "-0"}), 0);
    }
    std::multiset<std::string> all;
    std::istringstream text(read_file(out));
    for (std::string entry; std::getline(text, entry, '\0');) all.insert(entry);
    return all;
  };
  ::setenv("LC_ALL", "de_DE.UTF-8", 1);
  EXPECT_EQ(variables_of_program(), variables());
  ::unsetenv("LC_ALL");
  EXPECT_EQ(variables_of_program(), variables());
  char** const before = std::exchange(environ, nullptr);
  EXPECT_EQ(variables_of_program(), variables());
  environ = before;
}

// The lock of the environment is not free in a child that was forked meanwhile.
TEST_F(RunCommand, RunsWhileAnotherThreadChangesTheEnvironment) {
  ::setenv("TQ_CHANGED", "0", 1);
  std::atomic<bool> is_over = false;
  std::thread other([&is_over] {
    while (!is_over) {
      ::setenv("TQ_CHANGED", "1", 1);
      ::setenv("TQ_CHANGED", "2", 1);
    }
  });
  for (int i = 0; i < 100; ++i) EXPECT_EQ(run({"true"}), 0);
  is_over = true;
  other.join();
  ::unsetenv("TQ_CHANGED");
}

// The child says so itself, on the standard output that it shares.
TEST_F(RunCommand, ThatCannotBeExecutedGives1AndSaysWhy) {
  const std::string out = directory_ / "out";
  write_file(directory_ / "no program", "text");
  for (const auto& [program, error] : {std::pair<std::string, int>{"/no/such/program", ENOENT},
                                       {directory_ / "no program", EACCES}}) {
    write_file(out, "");
    tq_set_log_level(TQ_LOG_DEBUG);
    int result = 0;
    {
      const Redirect output(STDOUT_FILENO, out);
      result = run({program});
      std::fflush(stdout);
    }
    tq_set_log_level(TQ_LOG_WARNING);
    EXPECT_EQ(result, 1);
    EXPECT_THAT(read_file(out), testing::StartsWith("tq_run_command: execvp error - errno=" +
                                                    std::to_string(error) + ", " + strerror(error) +
                                                    "  -  util/tq_tbx_util "));
    EXPECT_THAT(read_file(out), HasSubstr("tq_run_command: exit, status=1  -  "));
    EXPECT_THAT(read_file(out), HasSubstr("tq_run_command: run command error - status=1  -  "));
  }
}

// A child that exits like the host would run the host's handlers and write its buffers twice.
TEST_F(RunCommand, ThatCannotBeExecutedEndsNothingOfTheHost) {
  const std::string out = directory_ / "out";
  FILE* buffered = std::fopen(out.c_str(), "w");
  std::fputs("once", buffered);
  EXPECT_EQ(run({"/no/such/program"}), 1);
  std::fclose(buffered);
  EXPECT_EQ(read_file(out), "once");
}

TEST_F(RunCommand, ThatCannotBeExecutedPrintsNothingOfTheHostAgain) {
  const std::string out = directory_ / "out";
  {
    const Redirect output(STDOUT_FILENO, out);
    std::fputs("once", stdout);
    EXPECT_EQ(run({"/no/such/program"}), 1);
    std::fflush(stdout);
  }
  EXPECT_EQ(read_file(out), "once");
}

TEST_F(RunCommand, WithoutAProcessGivesTheErrorNumber) {
  const Hook fork("fork", []() -> pid_t {
    errno = EAGAIN;
    return -1;
  });
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(run({"true"}), EAGAIN);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_run_command: fork error - errno=11, Resource temporarily "
                          "unavailable "));
}

TEST_F(RunCommand, GivesTheErrorOfAWaitThatFails) {
  ::signal(SIGCHLD, SIG_IGN);
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(run({"true"}), ECHILD);
  EXPECT_EQ(run_shell("exit 3"), ECHILD);
  ::signal(SIGCHLD, SIG_DFL);
}

TEST_F(RunCommand, DoesNotRepeatAnInterruptedWait) {
  int waits = 0;
  Hook wait("waitpid", [&](pid_t child, int* /*status*/, int options) -> pid_t {
    int ignored = 0;
    ::waitpid(child, &ignored, options);  // so that no child stays
    ++waits;
    errno = EINTR;
    return -1;
  });
  EXPECT_EQ(run({"true"}), EINTR);
  EXPECT_EQ(waits, 1);
}

TEST_F(RunCommand, WaitsForItsOwnChildOnly) {
  const pid_t other = ::fork();
  if (other == 0) ::_exit(5);
  EXPECT_EQ(run({"true"}), 0);
  EXPECT_EQ(exit_status_of(other), 5);
}

TEST_F(RunCommand, LeavesNoChildAndNoDescriptor) {
  const Descriptors before = open_descriptors();
  run({"true"});
  run({"/no/such/program"});
  EXPECT_THAT(opened_since(before), IsEmpty());
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(RunCommand, NeedsAProgram) {
  char* none[] = {nullptr};
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_run_command(0, nullptr), EINVAL);
  EXPECT_EQ(tq_run_command(0, none), EINVAL);
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
