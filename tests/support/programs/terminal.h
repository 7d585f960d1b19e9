// A terminal of the test's own.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_TERMINAL_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_TERMINAL_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "support/com/sockets.h"

namespace tarvio_test {

// Does not change what is written to it.
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

  // What a program has for its standard streams.
  int line() const { return line_.fd(); }

  // Until then it does not say how large it is.
  void resize(unsigned short columns, unsigned short rows) const {
    const winsize size = {.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    EXPECT_EQ(::ioctl(screen_.fd(), TIOCSWINSZ, &size), 0);
  }

  void type(const std::string& text) const {
    EXPECT_EQ(::write(screen_.fd(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  // What was written to it since the last call. That arrives some time after the writing, and in
  // pieces: a mark after it says that it is all there.
  std::string shown() const {
    constexpr char kMark = '\0';
    EXPECT_EQ(::write(line_.fd(), &kMark, 1), 1);
    std::string text;
    std::array<char, 4096> piece;
    while (text.find(kMark) == std::string::npos) {
      const ssize_t size = ::read(screen_.fd(), piece.data(), piece.size());
      if (size < 1) {
        ADD_FAILURE() << "the terminal cannot be read";
        break;
      }
      text.append(piece.data(), static_cast<size_t>(size));
    }
    std::erase(text, kMark);
    return text;
  }

 private:
  Socket screen_;
  Socket line_;
};

}  // namespace tarvio_test

#endif
