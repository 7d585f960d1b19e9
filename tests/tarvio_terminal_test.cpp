// What the client shows on a terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "support/one_reply.h"
#include "support/sockets.h"
#include "support/tarvio.h"

namespace tarvio_test {
namespace {

// A terminal that does not change what is written to it.
class Terminal {
 public:
  Terminal() {
    // One of the sandbox's own: the host's cannot be opened from inside.
    EXPECT_EQ(::mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666"), 0);
    screen_ = Socket(::open("/dev/pts/ptmx", O_RDWR | O_CLOEXEC));
    EXPECT_EQ(::unlockpt(screen_.fd()), 0);
    line_ = Socket(::open(::ptsname(screen_.fd()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios mode = {};
    EXPECT_EQ(::tcgetattr(line_.fd(), &mode), 0);
    ::cfmakeraw(&mode);
    EXPECT_EQ(::tcsetattr(line_.fd(), TCSANOW, &mode), 0);
  }
  ~Terminal() { ::umount2("/dev/pts", MNT_DETACH); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // What a run with this for its standard output shows.
  std::string show(const char* variable, const char* value) const {
    const OneReply manager("clock\n0\nok\nweb\n2\nbad\nradio\n1\n\n");
    const int line = line_.fd();
    run_tarvio({"status"}, [=] {
      ::setenv("TERM", "linux", 1);
      ::unsetenv("NO_COLOR");
      ::setenv(variable, value, 1);
      ::dup2(line, STDOUT_FILENO);
    });
    std::array<char, 4096> text;
    const ssize_t size = ::read(screen_.fd(), text.data(), text.size());
    EXPECT_GT(size, 0);
    return {text.data(), static_cast<size_t>(size)};
  }

 private:
  Socket screen_;
  Socket line_;
};

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
  EXPECT_EQ(terminal.show("NO_COLOR", ""), kColoured);
}

TEST(ClientOnATerminal, ShowsNoneWhereNobodyWantsThem) {
  const Terminal terminal;
  EXPECT_EQ(terminal.show("NO_COLOR", "1"), kPlain);
  EXPECT_EQ(terminal.show("TERM", "dumb"), kPlain);
}

}  // namespace
}  // namespace tarvio_test
