#include "terminal/question.h"

#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <array>

#include "base/pipe.h"
#include "process/child.h"

namespace client {

namespace {

void wait_for_input(const SignalHold& signals) {
  std::array<pollfd, 2> events = {{{signals.ending(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  (void)poll(events.data(), events.size(), -1);
  if (events[0].revents != 0) throw Interrupted{};
}

}  // namespace

bool can_ask() { return isatty(STDIN_FILENO) == 1; }

bool ask(const std::string& text, const SignalHold& signals) {
  (void)tarvio::write_all(STDERR_FILENO, text);
  std::string line;
  for (char letter = 0; letter != '\n';) {
    wait_for_input(signals);
    if (read(STDIN_FILENO, &letter, 1) != 1) break;
    if (letter != '\n') line += letter;
  }
  return strcasecmp(line.c_str(), "y") == 0 || strcasecmp(line.c_str(), "yes") == 0;
}

}  // namespace client
