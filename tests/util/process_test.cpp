#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "created_process.h"
#include "support/children.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/stdout_capture.h"
#include "tarvio/process.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::IsEmpty;
using testing::Not;

int exit_status_of_command(const std::string& command) {
  const Child child = start(command, 0);
  EXPECT_EQ(child.result, 0);
  return exit_status_of(child.pid);
}

void write_and_close(int fd, const std::string& text) {
  EXPECT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ::close(fd);
}

class Process : public testing::Test {
 protected:
  // A script of the test's own, as a command.
  std::string script(const std::string& name, const std::string& body) const {
    const fs::path path = directory_ / name;
    write_program(path, "#!/bin/sh\n" + body + "\n");
    return path;
  }
  // What a program prints that shows each of its arguments.
  std::string arguments_shown(const std::string& before, const std::string& after) const {
    const std::string show = script("show", R"(for word in "$@"; do printf '<%s>' "$word"; done)");
    const Child child = start(before + show + after, TQ_PIPE_STDOUT);
    EXPECT_EQ(child.result, 0);
    std::string shown = read_to_end(child.out);
    EXPECT_EQ(exit_status_of(child.pid), 0);
    return shown;
  }

  const TempDir directory_;
};

struct Split {
  const char* name;
  const char* before;
  const char* after;
  const char* arguments;
};

std::ostream& operator<<(std::ostream& stream, const Split& row) { return stream << row.name; }

class Arguments : public Process, public testing::WithParamInterface<Split> {};

TEST_P(Arguments, AreSplitAtBlanksAndAtNothingElse) {
  EXPECT_EQ(arguments_shown(GetParam().before, GetParam().after), GetParam().arguments);
}

INSTANTIATE_TEST_SUITE_P(
    Process, Arguments,
    testing::Values(
        Split{"None", "", "", ""}, Split{"OneBlank", "", " a b", "<a><b>"},
        Split{"SeveralBlanks", "", "   a    b", "<a><b>"},
        Split{"LeadingBlanks", "   ", " a", "<a>"}, Split{"TrailingBlanks", "", " a   ", "<a>"},
        Split{"Tab", "", " a\tb c", "<a\tb><c>"}, Split{"LineFeed", "", " a\nb", "<a\nb>"},
        Split{"DoubleQuotes", "", " \"a b\"", "<\"a><b\">"},
        Split{"SingleQuotes", "", " 'a'", "<'a'>"}, Split{"Backslash", "", " a\\ b", "<a\\><b>"},
        Split{"WhatAShellWouldRead", "", " $HOME * ; >x", "<$HOME><*><;><>x>"}));

TEST_F(Process, TakesThousandsOfArguments) {
  std::string words;
  std::string shown;
  for (int i = 0; i < 5000; ++i) {
    words += " " + std::to_string(i);
    shown += "<" + std::to_string(i) + ">";
  }
  EXPECT_EQ(arguments_shown("", words), shown);
}

TEST_F(Process, IsSearchedOnPath) {
  script("only-here", "exit 7");
  ::setenv("PATH", (directory_.path().string() + ":" + std::getenv("PATH")).c_str(), 1);
  EXPECT_EQ(exit_status_of_command("only-here"), 7);
}

TEST_F(Process, HasTheCallersEnvironmentAndDirectory) {
  ::setenv("TARVIO_PROBE", "value", 1);
  fs::current_path(directory_.path());
  const Child child = start(script("tell", "echo $TARVIO_PROBE $(pwd -P)"), TQ_PIPE_STDOUT);
  EXPECT_EQ(read_to_end(child.out), "value " + fs::canonical(directory_.path()).string() + "\n");
  end_of(child.pid);
  fs::current_path("/");
}

TEST_F(Process, StaysInTheCallersSessionAndGroup) {
  const Child child = start(script("tell", "cut -d' ' -f5,6 /proc/$$/stat"), TQ_PIPE_STDOUT);
  EXPECT_EQ(read_to_end(child.out),
            std::to_string(::getpgrp()) + " " + std::to_string(::getsid(0)) + "\n");
  end_of(child.pid);
}

TEST_F(Process, KeepsTheSignalsThatTheCallerIgnores) {
  ::signal(SIGUSR1, SIG_IGN);
  EXPECT_EQ(exit_status_of_command(script("hit", "kill -USR1 $$; exit 7")), 7);
}

TEST_F(Process, EndsWithStatus22ForAnEmptyCommand) {
  EXPECT_EQ(exit_status_of_command(""), EINVAL);
  EXPECT_EQ(exit_status_of_command(" "), EINVAL);
  EXPECT_EQ(exit_status_of_command("     "), EINVAL);
}

TEST_F(Process, EndsWithTheErrorOfAProgramThatCannotBeExecuted) {
  write_file(directory_ / "plain", "#!/bin/sh\n");
  ::setenv("PATH", directory_.path().c_str(), 1);  // one without directories closed to the user
  EXPECT_EQ(exit_status_of_command(directory_ / "missing"), ENOENT);
  EXPECT_EQ(exit_status_of_command("no-such-program-on-path"), ENOENT);
  EXPECT_EQ(exit_status_of_command(directory_ / "plain"), EACCES);
  EXPECT_EQ(exit_status_of_command(directory_.path()), EACCES);
}

TEST_F(Process, ThatCannotBeExecutedDoesNotRepeatWhatTheHostHasBuffered) {
  const StdoutCapture output;
  std::printf("once");
  exit_status_of_command(directory_ / "missing");
  EXPECT_EQ(output.text(), "once");
}

class Pipes : public Process, public testing::WithParamInterface<unsigned> {};

TEST_P(Pipes, ReplaceTheStreamsAskedForAndNoOthers) {
  const unsigned flags = GetParam();
  const std::string answer =
      script("answer", "read line; echo \"out $line\"; echo \"err $line\" >&2");
  write_file(directory_ / "in", "own\n");
  Child child;
  {
    const Redirect in(STDIN_FILENO, directory_ / "in");
    const Redirect out(STDOUT_FILENO, directory_ / "out");
    const Redirect err(STDERR_FILENO, directory_ / "err");
    child = start(answer, flags);
  }
  ASSERT_EQ(child.result, 0);
  if ((flags & TQ_PIPE_STDIN) != 0) {
    write_and_close(child.in, "piped\n");
  } else {
    EXPECT_EQ(child.in, kUnwritten);
  }
  EXPECT_EQ(exit_status_of(child.pid), 0);

  const auto printed = [&](unsigned flag, int fd, const char* file) {
    const std::string in_file = read_file(directory_ / file);
    if ((flags & flag) == 0) {
      EXPECT_EQ(fd, kUnwritten);
      return in_file;
    }
    EXPECT_THAT(in_file, IsEmpty());
    return read_to_end(fd);
  };
  const std::string line = (flags & TQ_PIPE_STDIN) != 0 ? "piped" : "own";
  EXPECT_EQ(printed(TQ_PIPE_STDOUT, child.out, "out"), "out " + line + "\n");
  EXPECT_EQ(printed(TQ_PIPE_STDERR, child.err, "err"), "err " + line + "\n");
}

INSTANTIATE_TEST_SUITE_P(Process, Pipes, testing::Range(0U, 8U));

TEST_F(Process, NeedsNoPlaceForStreamsThatAreNotAskedFor) {
  int pid = 0;
  ASSERT_EQ(tq_create_process("true", 0, &pid, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(exit_status_of(pid), 0);
}

TEST_F(Process, SeesTheEndOfItsInputAlthoughAnotherWasStartedMeanwhile) {
  const Child first = start("cat", TQ_PIPE_STDIN | TQ_PIPE_STDOUT);
  const Child second = start("cat", TQ_PIPE_STDIN);
  write_and_close(first.in, "text");
  EXPECT_EQ(read_to_end(first.out), "text");
  EXPECT_EQ(exit_status_of(first.pid), 0);
  ::close(second.in);
  EXPECT_EQ(exit_status_of(second.pid), 0);
}

TEST_F(Process, CostsTheCallerTwoDescriptorsForGood) {
  for (int i = 0; i < 3; ++i) {
    const Descriptors before = open_descriptors();
    exit_status_of_command("true");
    const Descriptors opened = opened_since(before);
    ASSERT_EQ(opened.size(), 2U);
    EXPECT_TRUE(opened.begin()->second.starts_with("pipe:"));
    EXPECT_EQ(opened.begin()->second, opened.rbegin()->second);
  }
}

TEST_F(Process, InheritsTheUnusedPipeAndNoEndOfTheCaller) {
  const std::string list =
      script("list", "for fd in /proc/$$/fd/*; do echo \"${fd##*/} $(readlink $fd)\"; done");
  const Descriptors before = open_descriptors();
  const Child child = start(list, kAllPipes);
  const Descriptors opened = opened_since(before);
  ASSERT_EQ(opened.size(), 5U);

  std::istringstream listing(read_to_end(child.out));
  std::vector<std::string> seen;
  for (std::string line; std::getline(listing, line);) seen.push_back(line);
  for (const auto& [number, target] : opened) {
    const std::string line = std::to_string(number) + " " + target;
    if (number == child.in || number == child.out || number == child.err) {
      EXPECT_THAT(seen, Not(Contains(line)));
    } else {
      EXPECT_THAT(seen, Contains(line));
    }
  }
  end_of(child.pid);
}

TEST_F(Process, GetsPipesWhoseCallersEndsCloseOnExecAndAnUnusedOneThatDoesNot) {
  const Descriptors before = open_descriptors();
  const Child child = start("true", kAllPipes);
  int callers = 0;
  for (const auto& [number, target] : opened_since(before)) {
    const bool is_callers = number == child.in || number == child.out || number == child.err;
    EXPECT_EQ(::fcntl(number, F_GETFD), is_callers ? FD_CLOEXEC : 0);
    callers += is_callers ? 1 : 0;
  }
  EXPECT_EQ(callers, 3);
  end_of(child.pid);
}

// The first pipe that is used begins at number 2 then.
class CallerWithoutStreams : public Process, public testing::WithParamInterface<unsigned> {};

TEST_P(CallerWithoutStreams, GetsThePipesAllTheSame) {
  const std::string answer = script("answer", "echo out; echo err >&2");
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const pid_t caller = ::fork();
  if (caller == 0) {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
    const Child child = start(answer, GetParam());
    std::string seen;
    if (child.out != kUnwritten) seen += read_to_end(child.out);
    if (child.err != kUnwritten) seen += read_to_end(child.err);
    write_and_close(ends[1], seen);
    ::_exit(0);
  }
  ::close(ends[1]);
  std::string expected;
  if ((GetParam() & TQ_PIPE_STDOUT) != 0) expected += "out\n";
  if ((GetParam() & TQ_PIPE_STDERR) != 0) expected += "err\n";
  EXPECT_EQ(read_to_end(ends[0]), expected);
  end_of(caller);
}

INSTANTIATE_TEST_SUITE_P(Process, CallerWithoutStreams,
                         testing::Values(TQ_PIPE_STDOUT, TQ_PIPE_STDERR,
                                         TQ_PIPE_STDOUT | TQ_PIPE_STDERR, kAllPipes));

class PipeThatFails : public Process, public testing::WithParamInterface<int> {};

TEST_P(PipeThatFails, EndsTheCallAndLeavesEarlierOnesOpen) {
  const int failing = GetParam();
  int pipes = 0;
  int forks = 0;
  const auto fails = [&] {
    errno = EMFILE;
    return ++pipes == failing;
  };
  const Hook pipe("pipe", [&](int* ends) { return fails() ? -1 : ::pipe(ends); });
  const Hook pipe2("pipe2",
                   [&](int* ends, int flags) { return fails() ? -1 : ::pipe2(ends, flags); });
  const Hook fork("fork", [&]() -> pid_t {
    ++forks;
    return -1;
  });
  const Descriptors before = open_descriptors();
  const Child child = start("true", kAllPipes);
  EXPECT_EQ(child.result, EMFILE);
  EXPECT_EQ(pipes, failing);
  EXPECT_EQ(forks, 0);
  EXPECT_EQ(child.pid, kUnwritten);
  EXPECT_EQ(opened_since(before).size(), 2U * static_cast<size_t>(failing - 1));
  // The order is: unused, output, input, error.
  EXPECT_EQ(child.out != kUnwritten, failing > 2);
  EXPECT_EQ(child.in != kUnwritten, failing > 3);
  EXPECT_EQ(child.err, kUnwritten);
}

INSTANTIATE_TEST_SUITE_P(Process, PipeThatFails, testing::Range(1, 5));

TEST_F(Process, ThatCannotBeForkedHasTheId1BelowZeroAndIsNoFailure) {
  const Hook fork("fork", []() -> pid_t {
    errno = EAGAIN;
    return -1;
  });
  const Descriptors before = open_descriptors();
  const Child child = start("true", kAllPipes);
  EXPECT_EQ(child.result, 0);
  EXPECT_EQ(child.pid, -1);
  EXPECT_EQ(opened_since(before).size(), 5U);
  EXPECT_EQ(read_to_end(child.out), "");
  EXPECT_EQ(read_to_end(child.err), "");
}

TEST_F(Process, IsNotMadeWithoutAPlaceForWhatTheCallHandsOut) {
  int forks = 0;
  const Hook fork("fork", [&]() -> pid_t {
    ++forks;
    return -1;
  });
  const Descriptors before = open_descriptors();
  int pid = kUnwritten;
  int fd = kUnwritten;
  EXPECT_EQ(tq_create_process(nullptr, 0, &pid, &fd, &fd, &fd), EINVAL);
  EXPECT_EQ(tq_create_process("true", 0, nullptr, &fd, &fd, &fd), EINVAL);
  EXPECT_EQ(tq_create_process("true", TQ_PIPE_STDIN, &pid, nullptr, &fd, &fd), EINVAL);
  EXPECT_EQ(tq_create_process("true", TQ_PIPE_STDOUT, &pid, &fd, nullptr, &fd), EINVAL);
  EXPECT_EQ(tq_create_process("true", TQ_PIPE_STDERR, &pid, &fd, &fd, nullptr), EINVAL);
  EXPECT_EQ(forks, 0);
  EXPECT_EQ(pid, kUnwritten);
  EXPECT_EQ(fd, kUnwritten);
  EXPECT_THAT(opened_since(before), IsEmpty());
}

class Execution : public Process {};

TEST_F(Execution, ReplacesTheCallingProcess) {
  const std::string command = script("end", "exit 7");
  const pid_t child = ::fork();
  if (child == 0) {
    tq_exec_command(command.c_str());
    ::_exit(1);
  }
  EXPECT_EQ(exit_status_of(child), 7);
}

TEST_F(Execution, ReturnsOnlyItsError) {
  EXPECT_EQ(tq_exec_command((directory_ / "missing").c_str()), ENOENT);
  EXPECT_EQ(tq_exec_command(directory_.path().c_str()), EACCES);
  EXPECT_EQ(tq_exec_command("  "), EINVAL);
  EXPECT_EQ(tq_exec_command(nullptr), EINVAL);
}

TEST_F(Execution, WithoutMemoryReturns12) {
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const FailAlloc fail(n);
    const int result = tq_exec_command("/no/such/program with arguments");
    happened = fail.happened();
    EXPECT_EQ(result, happened ? ENOMEM : ENOENT);
  }
  EXPECT_GT(n, 2);
}

}  // namespace
}  // namespace tarvio_test
