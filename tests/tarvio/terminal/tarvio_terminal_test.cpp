// What the client shows on a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/com/one_reply.h"
#include "support/com/replies.h"
#include "support/com/sockets.h"
#include "support/programs/tarvio.h"
#include "support/programs/terminal.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// Runs the client with this for its standard output.
void run(const Terminal& terminal, const std::vector<std::string>& arguments, const char* variable,
         const char* value) {
  const int line = terminal.line();
  run_tarvio(arguments, [=] {
    ::setenv("TERM", "linux", 1);
    ::unsetenv("NO_COLOR");
    ::setenv(variable, value, 1);
    ::dup2(line, STDOUT_FILENO);
  });
}

std::string show(const Terminal& terminal, const char* variable, const char* value) {
  const OneReply manager("clock\n0\nok\nweb\n2\nbad\nradio\n1\n\n");
  run(terminal, {"status"}, variable, value);
  return terminal.shown();
}

constexpr char kColoured[] =
    "\x1b[1mNAME\x1b[0m   \x1b[1mSTATE\x1b[0m    \x1b[1mDETAIL\x1b[0m\n"
    "clock  \x1b[32mnormal\x1b[0m   ok\n"
    "web    \x1b[31merror\x1b[0m    bad\n"
    "radio  \x1b[33mwarning\x1b[0m\n";
constexpr char kPlain[] =
    "NAME   STATE    DETAIL\n"
    "clock  normal   ok\n"
    "web    error    bad\n"
    "radio  warning\n";

TEST(ClientOnATerminal, ShowsColours) {
  const Terminal terminal;
  EXPECT_EQ(show(terminal, "NO_COLOR", ""), kColoured);
}

TEST(ClientOnATerminal, ShowsNoneWhereTheyAreNotWanted) {
  const Terminal terminal;
  EXPECT_EQ(show(terminal, "NO_COLOR", "1"), kPlain);
  EXPECT_EQ(show(terminal, "TERM", "dumb"), kPlain);
}

TEST(ClientOnATerminal, RedrawsTheStatusesInTheirPlaceWhenTheyChange) {
  const Terminal terminal;
  std::string shown;
  std::optional<Replies> second;
  std::thread managers([&] {
    { const Replies first({"clock\n0\nok\n", "clock\n0\nok\n", "clock\n2\nbad\n", ""}); }
    while (shown.find("waiting") == std::string::npos) {
      ::usleep(1000);
      shown += terminal.shown();
    }
    second.emplace(std::vector<std::string>{"clock\n0\nfine\n"});
  });
  // The first manager must be there before the client looks.
  while (::access(TQ_COM_SOCKET_PATH, F_OK) != 0) ::usleep(1000);
  run(terminal, {"status", "--watch", "--timeout", "0.5"}, "NO_COLOR", "1");
  managers.join();
  shown += terminal.shown();
  const std::string clear = "\x1b[H\x1b[2J";
  EXPECT_EQ(shown, clear + "NAME   STATE   DETAIL\nclock  normal  ok\n" + clear +
                       "NAME   STATE  DETAIL\nclock  error  bad\n" + clear + "no statuses\n" +
                       clear + "no manager answers; waiting for one\n" + clear +
                       "NAME   STATE   DETAIL\nclock  normal  fine\n");
}

std::string statuses(int count) {
  std::string reply;
  for (int n = 10; n < 10 + count; ++n) {
    reply += "application" + std::to_string(n) + "\n0\nstarted a while ago and still running\n";
  }
  return reply;
}

TEST(ClientOnATerminal, FitsTheStatusesToItsSizeEvenWhenThatChanges) {
  const Terminal terminal;
  terminal.resize(45, 12);
  std::string narrow;
  const Socket listener = listen_on(TQ_COM_SOCKET_PATH);
  std::thread manager([&] {
    for (int look = 0; look < 2; ++look) {
      const Socket client = accept_on(listener);
      if (look == 1) {
        narrow = terminal.shown();
        terminal.resize(80, 40);
      }
      client.read_to_end();
      client.send(statuses(30));
    }
  });
  run(terminal, {"status", "--watch", "--timeout", "0.5"}, "NO_COLOR", "1");
  manager.join();
  std::string expected = "\x1b[H\x1b[2JNAME           STATE   DETAIL\n";
  for (int n = 10; n < 19; ++n) {
    expected += "application" + std::to_string(n) + "  normal  started a while ag...\n";
  }
  EXPECT_EQ(narrow, expected + "... 21 more\n");
  const std::string wide = terminal.shown();
  EXPECT_THAT(wide, StartsWith("\x1b[H\x1b[2JNAME           STATE   DETAIL\napplication10  normal  "
                               "started a while ago and still running\n"));
  EXPECT_THAT(wide, HasSubstr("\napplication39  normal  started a while ago and still running\n"));
}

TEST(ClientOnATerminal, AddsLinesOfJsonForScripts) {
  const Terminal terminal;
  const Replies manager({"clock\n0\nok\n", "clock\n0\nok\n"});
  run(terminal, {"status", "--watch", "--json", "--timeout", "0.5"}, "NO_COLOR", "1");
  EXPECT_EQ(terminal.shown(), R"({"name":"clock","state":"normal","state_code":0,"detail":"ok"})"
                              "\n");
}

}  // namespace
}  // namespace tarvio_test
