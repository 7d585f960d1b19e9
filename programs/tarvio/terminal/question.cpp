#include "terminal/question.h"

#include <poll.h>
#include <strings.h>
#include <termios.h>
#include <unistd.h>

#include <array>

#include "base/pipe.h"
#include "process/child.h"
#include "process/failure.h"

namespace client {

namespace {

void wait_for_input(const SignalHold& signals) {
  std::array<pollfd, 2> events = {{{signals.ending(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  (void)poll(events.data(), events.size(), -1);
  if (events[0].revents != 0) throw Interrupted{};
}

// The size of a line; none when it does not fit.
std::optional<size_t> read_line(const SignalHold& signals, std::span<char> room) {
  size_t size = 0;
  while (true) {
    wait_for_input(signals);
    char letter = 0;
    if (read(STDIN_FILENO, &letter, 1) != 1 || letter == '\n') break;
    if (size < room.size()) room[size] = letter;
    ++size;
  }
  return size <= room.size() ? std::optional(size) : std::nullopt;
}

// Standard input does not show what is typed as long as this lives.
class HiddenTyping {
 public:
  HiddenTyping() {
    if (tcgetattr(STDIN_FILENO, &before_) != 0) throw Failure::of_system("cannot use the terminal");
    termios hidden = before_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) != 0) {
      throw Failure::of_system("cannot use the terminal");
    }
  }
  ~HiddenTyping() { (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_); }
  HiddenTyping(const HiddenTyping&) = delete;
  HiddenTyping& operator=(const HiddenTyping&) = delete;

 private:
  termios before_ = {};
};

}  // namespace

bool can_ask() { return isatty(STDIN_FILENO) == 1; }

bool ask(const std::string& text, const SignalHold& signals) {
  (void)tarvio::write_all(STDERR_FILENO, text);
  std::array<char, 3> room = {};
  const size_t size = read_line(signals, room).value_or(0);
  const std::string line(room.data(), size);
  return strcasecmp(line.c_str(), "y") == 0 || strcasecmp(line.c_str(), "yes") == 0;
}

std::optional<size_t> ask_hidden(const std::string& text, const SignalHold& signals,
                                 std::span<char> room) {
  const HiddenTyping typing;
  (void)tarvio::write_all(STDERR_FILENO, text);
  const std::optional<size_t> size = read_line(signals, room);
  (void)tarvio::write_all(STDERR_FILENO, "\n");
  return size;
}

}  // namespace client
