// What the client shows on a terminal.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/one_reply.h"
#include "support/tarvio.h"
#include "support/terminal.h"

namespace tarvio_test {
namespace {

// What a run shows with this for its standard output.
std::string show(const Terminal& terminal, const char* variable, const char* value) {
  const OneReply manager("clock\n0\nok\nweb\n2\nbad\nradio\n1\n\n");
  const int line = terminal.line();
  run_tarvio({"status"}, [=] {
    ::setenv("TERM", "linux", 1);
    ::unsetenv("NO_COLOR");
    ::setenv(variable, value, 1);
    ::dup2(line, STDOUT_FILENO);
  });
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

TEST(ClientOnATerminal, ShowsNoneWhereNobodyWantsThem) {
  const Terminal terminal;
  EXPECT_EQ(show(terminal, "NO_COLOR", "1"), kPlain);
  EXPECT_EQ(show(terminal, "TERM", "dumb"), kPlain);
}

}  // namespace
}  // namespace tarvio_test
